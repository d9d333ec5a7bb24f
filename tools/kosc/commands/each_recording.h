// Commands that take several recordings.
#ifndef KOSC_TOOL_EACH_RECORDING_H
#define KOSC_TOOL_EACH_RECORDING_H

#include <functional>
#include <string>
#include <vector>

#include "commands/commands.h"

// Does it for one after the other: EXIT_DONE when there was a message in any. One that cannot be read is reported, the
// others are heard all the same, and EXIT_FAILED is returned in the end, as when `process` returned it.
exit_code for_each_recording(const std::vector<std::string>& paths,
                             const std::function<exit_code(const std::string& path)>& process);

#endif
