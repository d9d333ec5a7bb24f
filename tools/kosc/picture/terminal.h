// What the command writes to its standard streams.
#ifndef KOSC_TOOL_TERMINAL_H
#define KOSC_TOOL_TERMINAL_H

#include <string_view>

// Writes to standard output at once, not when a buffer is full; throws when that fails (disk full, reader gone).
void write_output(std::string_view bytes);

// How far a long recording has been heard, in one line of standard error that is rewritten in place.
class progress_line {
public:
    // Stays silent unless `wanted`, on a terminal, and for a recording of some length.
    progress_line(bool wanted, double total_seconds);
    ~progress_line() { clear(); }
    progress_line(const progress_line&) = delete;
    progress_line& operator=(const progress_line&) = delete;

    void update(double seconds);
    // Takes the line away, so that other output does not run into it; update() shows it again.
    void clear();

private:
    double total_seconds_;
    bool enabled_;
    int shown_percent_ = -1;
};

#endif
