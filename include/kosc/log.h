/**
 * @file
 * The library's logger and its millisecond stopwatch.
 *
 * One logger serves the whole process. A call site tests `log_level` itself and only then calls log_msg(), so that a
 * message which is filtered out costs one comparison. Settings and buffers are plain globals without locks: change
 * settings while no other thread is in the library. The buffers are used by every line, unless time stamps are off and
 * lines have heap buffers of their own, as ko_soundcommu_register_log() sets them; only then may two threads log.
 */
#ifndef KOSC_LOG_H
#define KOSC_LOG_H

#include <stdint.h>

#include "kosc/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/** The C library's, from time.h under POSIX; declared here so that strict C99 accepts this header. */
struct timespec;

/** Receives one finished line, newline and NUL included; the text is valid only during the call. */
typedef void (*log_callback_t)(const char* line);

/** Level numbers, as the first argument of log_msg(). */
enum { KOSC_LEVEL_ERROR = 1, KOSC_LEVEL_WARN = 2, KOSC_LEVEL_INFO = 3, KOSC_LEVEL_DEBUG = 4 };

/**
 * The level in force; 4 at load time, 0 silences everything. ERROR is logged when it is not 0, WARN from 2 on, INFO
 * from 3 on, DEBUG only when it is exactly 4. Hosts may read and write it directly.
 */
extern KOSC_API uint32_t log_level;

/** Sets `log_level`; values above 4 become 4. */
KOSC_API void soundcomm_set_log_level(uint32_t level);

/** Non-zero puts a time stamp before every line (the default at load time); 0 leaves it out. */
KOSC_API void soundcomm_config_log_time(uint32_t enable);

/**
 * Non-zero formats every line in a heap buffer of its own, and drops a line that gets none with a note on standard
 * error; 0 (the default at load time) uses one static buffer and never allocates.
 */
KOSC_API void soundcomm_config_log_memory(uint32_t enable);

/** Sends lines to `callback`; null sends them to standard output, as at load time. */
KOSC_API void soundcomm_set_log_callback(log_callback_t callback);

/**
 * Formats and delivers one line, "[time][LEVEL][message][line]" and a newline, without looking at `log_level`.
 *
 * A line of 4095 characters or more, and a message whose text is empty, is dropped with a note on standard error.
 *
 * @param level   1 to 4; selects the level's name
 * @param line    source line of the call site
 * @param format  printf format of the message, followed by its arguments
 */
KOSC_API void log_msg(uint32_t level, int line, const char* format, ...) KOSC_PRINTF(3, 4);

/** Reads the monotonic clock into `*t`. */
KOSC_API void timer_start(struct timespec* t);

/** Milliseconds from `*start` until now on the monotonic clock, truncated. */
KOSC_API long timer_end(const struct timespec* start);

#ifdef __cplusplus
}
#endif

#endif
