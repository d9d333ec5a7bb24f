// Level tests at the call site: a message that is filtered out costs one comparison.
#ifndef KOSC_LOG_LOG_MACROS_H
#define KOSC_LOG_LOG_MACROS_H

#include "kosc/log.h"

#define KOSC_LOG_IF(enabled, level, ...)                                                                               \
    do {                                                                                                               \
        if (enabled) {                                                                                                 \
            log_msg(level, __LINE__, __VA_ARGS__);                                                                     \
        }                                                                                                              \
    } while (false)

#define KOSC_LOG_ERROR(...) KOSC_LOG_IF(log_level != 0, KOSC_LEVEL_ERROR, __VA_ARGS__)
#define KOSC_LOG_WARN(...) KOSC_LOG_IF(log_level >= KOSC_LEVEL_WARN, KOSC_LEVEL_WARN, __VA_ARGS__)
#define KOSC_LOG_INFO(...) KOSC_LOG_IF(log_level >= KOSC_LEVEL_INFO, KOSC_LEVEL_INFO, __VA_ARGS__)
// Equality, not a lower bound: a host that writes a level above 4 keeps the others and loses DEBUG.
#define KOSC_LOG_DEBUG(...) KOSC_LOG_IF(log_level == KOSC_LEVEL_DEBUG, KOSC_LEVEL_DEBUG, __VA_ARGS__)

// Logs at ERROR and returns `result` when `failed` holds.
#define KOSC_RETURN_IF(failed, result, ...)                                                                            \
    do {                                                                                                               \
        if (failed) {                                                                                                  \
            KOSC_LOG_ERROR(__VA_ARGS__);                                                                               \
            return result;                                                                                             \
        }                                                                                                              \
    } while (false)

#endif
