// Text by printf's rules.
#ifndef KOSC_INSPECT_TEXT_H
#define KOSC_INSPECT_TEXT_H

#include <string>

#include "kosc/export.h"

namespace kosc_inspect {

// What printf would print, whatever its length.
std::string text(const char* format, ...) KOSC_PRINTF(1, 2);

} // namespace kosc_inspect

#endif
