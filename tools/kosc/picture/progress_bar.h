// How far a recording has been heard, in one line of standard error that is rewritten in place.
#ifndef KOSC_TOOL_PROGRESS_BAR_H
#define KOSC_TOOL_PROGRESS_BAR_H

#include <chrono>
#include <cstdint>
#include <optional>

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

#endif
