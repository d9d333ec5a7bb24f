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
#if defined(__GNUC__)
#define KOSC_API __attribute__((visibility("default")))
#define KOSC_PRINTF(format_index, first_argument) __attribute__((format(printf, format_index, first_argument)))
#else
#define KOSC_API
#define KOSC_PRINTF(format_index, first_argument)
#endif

#endif
