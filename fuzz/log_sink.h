// Takes the library's log lines and checks their form.
#ifndef KOSC_FUZZ_LOG_SINK_H
#define KOSC_FUZZ_LOG_SINK_H

#include <cstdint>
#include <cstring>

#include "input.h"
#include "kosc/log.h"

// Lines since set_up_log().
inline uint32_t log_lines = 0;

inline void set_up_log(uint32_t level, bool times, bool own_buffers)
{
    log_lines = 0;
    soundcomm_set_log_level(level);
    soundcomm_config_log_time(times ? 1 : 0);
    soundcomm_config_log_memory(own_buffers ? 1 : 0);
    soundcomm_set_log_callback([](const char* line) {
        const size_t length = std::strlen(line);
        FUZZ_CHECK(length > 2 && line[0] == '[' && line[length - 1] == '\n');
        ++log_lines;
    });
}

#endif
