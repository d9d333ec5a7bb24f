// Recordings without a header, whose format the user names.
#ifndef KOSC_TOOL_RAW_FORMAT_H
#define KOSC_TOOL_RAW_FORMAT_H

#include <sndfile.h>

#include <string>

// What "48000:s16:1" says: rate, samples and channels. Throws when it says something else.
SF_INFO raw_format(const std::string& text);

#endif
