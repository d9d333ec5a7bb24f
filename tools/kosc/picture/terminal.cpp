#include "picture/terminal.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>

namespace {

// Shorter recordings are through before anybody wonders.
constexpr double LONG_SECONDS = 20.0;

} // namespace

void write_output(std::string_view bytes)
{
    if (std::fwrite(bytes.data(), 1, bytes.size(), stdout) != bytes.size() || std::fflush(stdout) != 0) {
        throw std::runtime_error("cannot write to standard output: " + std::string(std::strerror(errno)));
    }
}

progress_line::progress_line(bool wanted, double total_seconds)
    : total_seconds_(total_seconds), enabled_(wanted && total_seconds >= LONG_SECONDS && isatty(STDERR_FILENO) != 0)
{
}

void progress_line::update(double seconds)
{
    if (!enabled_) {
        return;
    }
    const int percent = static_cast<int>(100.0 * std::min(seconds / total_seconds_, 1.0));
    if (percent != shown_percent_) {
        std::fprintf(stderr, "\rlistening: %3d %% of %.0f s", percent, total_seconds_);
        shown_percent_ = percent;
    }
}

void progress_line::clear()
{
    if (shown_percent_ >= 0) {
        std::fputs("\r\033[K", stderr);
        shown_percent_ = -1;
    }
}
