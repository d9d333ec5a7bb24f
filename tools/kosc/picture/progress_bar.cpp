#include "picture/progress_bar.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>

#include "picture/terminal.h"

namespace {

constexpr auto PATIENCE = std::chrono::seconds(2);
constexpr auto INTERVAL = std::chrono::milliseconds(100);

std::string as_clock(double seconds)
{
    const long all = std::lround(seconds);
    char text[40];
    if (all >= 3600) {
        std::snprintf(text, sizeof text, "%ld:%02ld:%02ld", all / 3600, all / 60 % 60, all % 60);
    } else {
        std::snprintf(text, sizeof text, "%ld:%02ld", all / 60, all % 60);
    }
    return text;
}

std::string bar(double share, size_t width)
{
    const auto done = static_cast<size_t>(share * static_cast<double>(width));
    return "[" + std::string(done, '#') + std::string(width - done, '-') + "] ";
}

} // namespace

progress_bar::progress_bar(bool wanted, double total_seconds)
    : total_seconds_(total_seconds), enabled_(wanted && isatty(STDERR_FILENO) != 0), next_(start_ + PATIENCE)
{
}

void progress_bar::update(double seconds, std::optional<uint64_t> messages)
{
    const clock::time_point now = clock::now();
    if (!enabled_ || now < next_) {
        return;
    }
    next_ = now + INTERVAL;
    const double speed = seconds / std::chrono::duration<double>(now - start_).count();
    const double share = total_seconds_ > 0.0 ? std::min(seconds / total_seconds_, 1.0) : 0.0;
    char figures[64];
    std::snprintf(figures, sizeof figures, speed < 10.0 ? ", %.1fx speed" : ", %.0fx speed", speed);
    std::string line = figures;
    if (total_seconds_ > 0.0) {
        std::snprintf(figures, sizeof figures, "%3.0f %%", std::floor(100.0 * share));
        line = figures + line;
        line += speed > 0.0 ? ", " + as_clock((1.0 - share) * total_seconds_ / speed) + " left" : "";
    } else {
        line = as_clock(seconds) + " heard" + line;
    }
    if (messages) {
        line += ", " + std::to_string(*messages) + (*messages == 1 ? " message" : " messages");
    }
    constexpr size_t WIDEST = 30, NARROWEST = 8, BRACKETS = 4;
    const size_t columns = terminal_columns(STDERR_FILENO);
    const size_t room = columns - std::min(columns, line.size() + BRACKETS);
    if (total_seconds_ > 0.0 && room >= NARROWEST) {
        line = bar(share, std::min(room, WIDEST)) + line;
    }
    line.resize(std::min(line.size(), columns - 1)); // one more and the terminal would begin another line
    std::fprintf(stderr, "\r%s\033[K", line.c_str());
    shown_ = true;
}

void progress_bar::clear()
{
    if (shown_) {
        std::fputs("\r\033[K", stderr);
        shown_ = false;
    }
}
