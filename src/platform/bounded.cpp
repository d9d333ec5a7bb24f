#include "platform/bounded.h"

#include <cstdio>
#include <cstring>

namespace kosc {

bool bounded_copy(void* dest, size_t room, const void* src, size_t count)
{
    if (dest == nullptr || src == nullptr || count > room) {
        return false;
    }
    std::memcpy(dest, src, count);
    return true;
}

bool bounded_set(void* dest, size_t room, int value, size_t count)
{
    if (dest == nullptr || count > room) {
        return false;
    }
    std::memset(dest, value, count);
    return true;
}

int bounded_vprint(char* dest, size_t room, size_t max_chars, const char* format, va_list args)
{
    if (dest == nullptr || format == nullptr || max_chars >= room) {
        return -1;
    }
    const int length = std::vsnprintf(dest, max_chars + 1, format, args);
    return length < 0 || static_cast<size_t>(length) > max_chars ? -1 : length;
}

int bounded_print(char* dest, size_t room, size_t max_chars, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    const int length = bounded_vprint(dest, room, max_chars, format, args);
    va_end(args);
    return length;
}

} // namespace kosc
