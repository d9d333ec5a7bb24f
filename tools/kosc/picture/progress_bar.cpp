#include "picture/progress_bar.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <string>

#include "kosc_transfer/transfer.h"
#include "text.h"

using kosc_inspect::text;

namespace {

constexpr auto PATIENCE = std::chrono::seconds(2);
constexpr auto INTERVAL = std::chrono::milliseconds(100);

std::string as_clock(double seconds)
{
    const long all = std::lround(seconds);
    return all >= 3600 ? text("%ld:%02ld:%02ld", all / 3600, all / 60 % 60, all % 60)
                       : text("%ld:%02ld", all / 60, all % 60);
}

// `line` behind a bar, if there is room for one and a share to show.
std::string with_bar(std::optional<double> share, std::string line, size_t columns)
{
    constexpr size_t WIDEST = 30, NARROWEST = 8, BRACKETS = 4;
    const size_t room = columns - std::min(columns, line.size() + BRACKETS);
    if (share && room >= NARROWEST) {
        const size_t width = std::min(room, WIDEST);
        const auto done = static_cast<size_t>(*share * static_cast<double>(width));
        line.insert(0, "[" + std::string(done, '#') + std::string(width - done, '-') + "] ");
    }
    line.resize(std::min(line.size(), columns - 1)); // one more and the terminal would begin another line
    return line;
}

std::string percentage(double share) { return text("%3.0f %%", std::floor(100.0 * share)); }

} // namespace

std::string transfer_line(uint64_t messages, uint64_t all, double rate, size_t columns)
{
    const double share = all != 0 ? static_cast<double>(messages) / static_cast<double>(all) : 0.0;
    std::string line = all != 0 ? percentage(share) : std::to_string(messages) + " messages";
    if (rate > 0.0) {
        line += ", " + std::to_string(std::lround(rate * KOSC_TRANSFER_CONTENT_BYTES)) + " bytes/s";
        line += all != 0 ? ", " + as_clock(static_cast<double>(all - messages) / rate) + " left" : "";
    }
    return with_bar(all != 0 ? std::optional(share) : std::nullopt, line, columns);
}

terminal_line::terminal_line(int descriptor, bool wanted, const char* erasing)
    : descriptor_(wanted && isatty(descriptor) != 0 ? descriptor : -1), erasing_(erasing)
{
}

void terminal_line::show(const std::string& line)
{
    // Whether it is seen does not matter. dprintf(), which would do, is not there on all systems.
    [[maybe_unused]] const auto written = write(descriptor_, line.data(), line.size());
    shown_ = true;
}

void terminal_line::clear()
{
    if (shown_) {
        show(erasing_);
        shown_ = false;
    }
}

progress_line::progress_line(int descriptor, bool wanted)
    : terminal_line(descriptor, wanted, "\r\033[K"), next_(start_ + PATIENCE)
{
}

bool progress_line::is_due()
{
    const clock::time_point now = clock::now();
    if (!enabled() || now < next_) {
        return false;
    }
    next_ = now + INTERVAL;
    return true;
}

progress_bar::progress_bar(bool wanted, double total_seconds)
    : progress_line(STDERR_FILENO, wanted), total_seconds_(total_seconds)
{
}

void progress_bar::update(double seconds, std::optional<uint64_t> messages)
{
    if (!is_due()) {
        return;
    }
    const double speed = seconds / seconds_so_far();
    const double share = total_seconds_ > 0.0 ? std::min(seconds / total_seconds_, 1.0) : 0.0;
    std::string line = text(speed < 10.0 ? ", %.1fx speed" : ", %.0fx speed", speed);
    if (total_seconds_ > 0.0) {
        line = percentage(share) + line;
        line += speed > 0.0 ? ", " + as_clock((1.0 - share) * total_seconds_ / speed) + " left" : "";
    } else {
        line = as_clock(seconds) + " heard" + line;
    }
    if (messages) {
        line += ", " + kosc_inspect::counted(*messages, "message");
    }
    show(with_bar(total_seconds_ > 0.0 ? std::optional(share) : std::nullopt, line, columns()));
}

void sending_bar::update(uint64_t messages, uint64_t all)
{
    if (is_due()) {
        show(transfer_line(messages, all, static_cast<double>(messages) / seconds_so_far(), columns()));
    }
}
