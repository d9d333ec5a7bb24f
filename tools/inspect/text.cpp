#include "text.h"

#include <cstdarg>
#include <cstdio>

namespace kosc_inspect {

std::string text(const char* format, ...)
{
    va_list arguments, again;
    va_start(arguments, format);
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, arguments);
    std::string made(length > 0 ? static_cast<size_t>(length) : 0, '\0');
    std::vsnprintf(made.data(), made.size() + 1, format, again);
    va_end(again);
    va_end(arguments);
    return made;
}

std::string counted(uint64_t count, const char* thing)
{
    return std::to_string(count) + " " + thing + (count == 1 ? "" : "s");
}

} // namespace kosc_inspect
