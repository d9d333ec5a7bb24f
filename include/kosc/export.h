/**
 * @file
 * What the public headers share: the marks for exported names and for checked format strings.
 */
#ifndef KOSC_EXPORT_H
#define KOSC_EXPORT_H

/** @def KOSC_API
 * Marks what the library exports. */
/** @def KOSC_PRINTF
 * Has compilers check a format string and its arguments. */
#if defined(_WIN32)
/* What the DLL exports, the linker is told. Its hosts define KOSC_DLL, as the CMake package does, to reach variables
   too; without it functions alone are sure to be found. */
#if defined(KOSC_DLL)
#define KOSC_API __declspec(dllimport)
#else
#define KOSC_API
#endif
#elif defined(__GNUC__)
#define KOSC_API __attribute__((visibility("default")))
#else
#define KOSC_API
#endif

#if defined(__MINGW32__) && !defined(__clang__)
#define KOSC_PRINTF(format_index, first_argument) __attribute__((format(gnu_printf, format_index, first_argument)))
#elif defined(__GNUC__)
#define KOSC_PRINTF(format_index, first_argument) __attribute__((format(printf, format_index, first_argument)))
#else
#define KOSC_PRINTF(format_index, first_argument)
#endif

#endif
