// How far a recording has been heard, in one line of standard error that is rewritten in place.
#ifndef KOSC_TOOL_PROGRESS_BAR_H
#define KOSC_TOOL_PROGRESS_BAR_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

// How far a transfer is, in a line of up to so many columns: "[###---]  41 %, 83 bytes/s, 0:25 left". `rate` is that of
// its messages, 0 when it is not known; without an end, `all` is 0.
std::string transfer_line(uint64_t messages, uint64_t all, double rate, size_t columns);

class progress_bar {
public:
    // Stays silent unless `wanted`, on a terminal, and for what takes longer than two seconds. A recording whose length
    // is unknown has `total_seconds` 0.
    progress_bar(bool wanted, double total_seconds);
    ~progress_bar() { clear(); }
    progress_bar(const progress_bar&) = delete;
    progress_bar& operator=(const progress_bar&) = delete;

    void update(double seconds, std::optional<uint64_t> messages = {});
    // Takes the line away, so that other output does not run into it; update() shows it again.
    void clear();

private:
    using clock = std::chrono::steady_clock;

    double total_seconds_;
    bool enabled_;
    bool shown_ = false;
    clock::time_point start_ = clock::now();
    clock::time_point next_;
};

// The same for a transfer that is being sent, on any terminal.
class sending_bar {
public:
    sending_bar(int descriptor, bool wanted);
    ~sending_bar() { clear(); }
    sending_bar(const sending_bar&) = delete;
    sending_bar& operator=(const sending_bar&) = delete;

    // So many messages of `all` have been sent; without an end, `all` is 0.
    void update(uint64_t messages, uint64_t all);
    void clear();

private:
    using clock = std::chrono::steady_clock;

    int descriptor_; // -1: none
    bool shown_ = false;
    clock::time_point start_ = clock::now();
    clock::time_point next_;
};

#endif
