// Collects the library's log lines during a test, and restores the logger's load-time settings afterwards.
#ifndef KOSC_TESTS_SUPPORT_LOG_CAPTURE_H
#define KOSC_TESTS_SUPPORT_LOG_CAPTURE_H

#include <string>
#include <vector>

#include "kosc/log.h"

class log_capture {
public:
    explicit log_capture(uint32_t level = KOSC_LEVEL_DEBUG)
    {
        lines().clear();
        soundcomm_set_log_level(level);
        soundcomm_config_log_time(0);
        soundcomm_set_log_callback([](const char* line) { lines().emplace_back(line); });
    }
    ~log_capture()
    {
        soundcomm_set_log_level(KOSC_LEVEL_DEBUG);
        soundcomm_config_log_time(1);
        soundcomm_config_log_memory(0);
        soundcomm_set_log_callback(nullptr);
    }
    log_capture(const log_capture&) = delete;
    log_capture& operator=(const log_capture&) = delete;

    static void clear() { lines().clear(); }
    static std::vector<std::string>& lines()
    {
        static std::vector<std::string> all;
        return all;
    }
};

#endif
