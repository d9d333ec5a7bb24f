// Text by printf's rules.
#ifndef KOSC_INSPECT_TEXT_H
#define KOSC_INSPECT_TEXT_H

#include <cstdint>
#include <string>

#include "kosc/export.h"

namespace kosc_inspect {

// What printf would print, whatever its length.
std::string text(const char* format, ...) KOSC_PRINTF(1, 2);

// "1 frame", "2 frames".
std::string counted(uint64_t count, const char* thing);

} // namespace kosc_inspect

#endif
