// Copies, clearing and formatting that know the size of their destination.
#ifndef KOSC_PLATFORM_BOUNDED_H
#define KOSC_PLATFORM_BOUNDED_H

#include <cstdarg>
#include <cstddef>

#include "kosc/export.h"

namespace kosc {

// Copies `count` bytes; false, nothing copied, when a pointer is null or they do not fit `room`.
bool bounded_copy(void* dest, size_t room, const void* src, size_t count);

// Sets `count` bytes; false, nothing set, when `dest` is null or they do not fit `room`.
bool bounded_set(void* dest, size_t room, int value, size_t count);

// Writes at most `max_chars` characters and a NUL. Returns the length, or -1 when the text was cut or cannot be made.
int bounded_vprint(char* dest, size_t room, size_t max_chars, const char* format, va_list args) KOSC_PRINTF(4, 0);
int bounded_print(char* dest, size_t room, size_t max_chars, const char* format, ...) KOSC_PRINTF(4, 5);

} // namespace kosc

#endif
