// Names for files that others sent.
#ifndef KOSC_TOOL_FILE_NAME_H
#define KOSC_TOOL_FILE_NAME_H

#include <cstdint>
#include <string>

// A name in UTF-8 for a file in the user's folder, from one that anybody may have sent: the last part of a path,
// without control characters, what turns the direction of writing, or a dot at its beginning; `fallback` when nothing
// is left, or it is not UTF-8.
std::string safe_name(const std::string& sent, const std::string& fallback);

// `name` with -`number` before its ending, cut so that it is no longer than a name may be; as it is for 1.
std::string numbered_name(const std::string& name, uint32_t number);

#endif
