#include "kosc/log.h"

#include <cstdarg>
#include <cstdio>
#include <ctime>

#include "platform/bounded.h"
#include "platform/clock.h"
#include "platform/owned.h"

uint32_t log_level = KOSC_LEVEL_DEBUG;

namespace {

using kosc::bounded_print;
using kosc::bounded_vprint;

constexpr size_t LINE_SIZE = 4096;
constexpr size_t STAMP_SIZE = 1024;
constexpr int LONGEST_LINE = LINE_SIZE - 2;
constexpr const char* LEVEL_NAMES[] = {"INVALID", "ERROR", "WARN", "INFO", "DEBUG"};
constexpr uint32_t TOP_LEVEL = KOSC_LEVEL_DEBUG;

uint32_t log_time_enabled = 1;
uint32_t log_memory_enabled = 0;
log_callback_t log_callback = nullptr;
char static_line[LINE_SIZE];
char stamp[STAMP_SIZE];

const char* level_name(uint32_t level) { return LEVEL_NAMES[level > TOP_LEVEL ? 0 : level]; }

// Date and time in the shared buffer, then the millisecond in six digits: hosts parse this width.
const char* time_stamp()
{
    tm now{};
    int millisecond = 0;
    stamp[0] = '\0';
    if (kosc::local_time(&now, &millisecond)) {
        const size_t length = strftime(stamp, STAMP_SIZE, "%Y-%m-%d %H:%M:%S", &now);
        bounded_print(stamp + length, STAMP_SIZE - length, STAMP_SIZE - 1 - length, ",%06d", millisecond);
    }
    return stamp;
}

// A line under construction in a buffer of LINE_SIZE bytes.
struct line_writer {
    char* text;
    int length;

    char* end() const { return text + length; }
    size_t room() const { return LINE_SIZE - static_cast<size_t>(length); }

    // Counts a piece that was written at the end; false, with the reason on standard error, when the line is lost.
    bool accept(int piece)
    {
        if (piece <= 0) {
            std::fprintf(stderr, "log_message: fail to log.\n");
            return false;
        }
        if (length + piece > LONGEST_LINE) {
            std::fprintf(stderr, "log_message: msg too long.\n");
            return false;
        }
        length += piece;
        return true;
    }
};

int write_prefix(const line_writer& line, uint32_t level)
{
    if (log_time_enabled != 0) {
        return bounded_print(line.end(), line.room(), line.room() - 1, "[%s][%s][", time_stamp(), level_name(level));
    }
    return bounded_print(line.end(), line.room(), line.room() - 1, "[%s][", level_name(level));
}

void deliver(const char* text)
{
    if (log_callback != nullptr) {
        log_callback(text);
    } else {
        std::printf("%s", text);
    }
}

double to_milliseconds(const timespec& t)
{
    return static_cast<double>(static_cast<int64_t>(t.tv_sec) * 1000) + 0.000001 * static_cast<double>(t.tv_nsec);
}

} // namespace

void soundcomm_set_log_level(uint32_t level) { log_level = level > TOP_LEVEL ? TOP_LEVEL : level; }

void soundcomm_config_log_time(uint32_t enable) { log_time_enabled = enable; }

void soundcomm_config_log_memory(uint32_t enable) { log_memory_enabled = enable; }

void soundcomm_set_log_callback(log_callback_t callback) { log_callback = callback; }

void log_msg(uint32_t level, int line_number, const char* format, ...)
{
    const kosc::block_ptr<char> heap_line{log_memory_enabled != 0 ? kosc::alloc_array<char>(LINE_SIZE) : nullptr};
    if (log_memory_enabled != 0 && !heap_line) {
        std::fprintf(stderr, "log_message: Unable to allocate memory buffer");
        return;
    }
    line_writer line{heap_line ? heap_line.get() : static_line, 0};
    if (!line.accept(write_prefix(line, level))) {
        return;
    }
    va_list args;
    va_start(args, format);
    const int message = bounded_vprint(line.end(), line.room(), line.room() - 1, format, args);
    va_end(args);
    if (line.accept(message) &&
        line.accept(bounded_print(line.end(), line.room(), line.room() - 1, "][%d]\n", line_number))) {
        deliver(line.text);
    }
}

void timer_start(struct timespec* t) { *t = kosc::monotonic_time(); }

long timer_end(const struct timespec* start)
{
    return static_cast<long>(to_milliseconds(kosc::monotonic_time()) - to_milliseconds(*start));
}
