// How far something is that takes long, in one line of a terminal.
#ifndef KOSC_TOOL_PROGRESS_BAR_H
#define KOSC_TOOL_PROGRESS_BAR_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "picture/terminal.h"

// How far a transfer is, in a line of up to so many columns: "[###---]  41 %, 83 bytes/s, 0:25 left". `rate` is that of
// its messages, 0 when it is not known; without an end, `all` is 0.
std::string transfer_line(uint64_t messages, uint64_t all, double rate, size_t columns);

// A line on a terminal that is rewritten in place.
class terminal_line {
public:
    terminal_line(const terminal_line&) = delete;
    terminal_line& operator=(const terminal_line&) = delete;

    bool enabled() const { return descriptor_ >= 0; }
    size_t columns() const { return terminal_columns(descriptor_); }
    // Takes the line away, so that other output does not run into it, until it is shown again.
    void clear();

protected:
    // Shows nothing unless `wanted` and `descriptor` is a terminal. What `erasing` says to one takes the line away.
    terminal_line(int descriptor, bool wanted, const char* erasing);
    ~terminal_line() { clear(); }

    // Writes the line, with what brings the cursor back to its start.
    void show(const std::string& line);

private:
    int descriptor_; // -1: none
    const char* erasing_;
    bool shown_ = false;
};

// One that stays away for what takes less than two seconds.
class progress_line : public terminal_line {
protected:
    progress_line(int descriptor, bool wanted);

    // Whether it is time for a new line.
    bool is_due();
    double seconds_so_far() const { return std::chrono::duration<double>(clock::now() - start_).count(); }
    void show(const std::string& line) { terminal_line::show("\r" + line + "\033[K"); }

private:
    using clock = std::chrono::steady_clock;

    clock::time_point start_ = clock::now();
    clock::time_point next_;
};

// How far a recording has been heard, on standard error.
class progress_bar : public progress_line {
public:
    // A recording whose length is unknown has `total_seconds` 0.
    progress_bar(bool wanted, double total_seconds);
    void update(double seconds, std::optional<uint64_t> messages = {});

private:
    double total_seconds_;
};

// The same for a transfer that is being sent, on any terminal.
class sending_bar : public progress_line {
public:
    sending_bar(int descriptor, bool wanted) : progress_line(descriptor, wanted) {}
    // So many messages of `all` have been sent; without an end, `all` is 0.
    void update(uint64_t messages, uint64_t all);
};

#endif
