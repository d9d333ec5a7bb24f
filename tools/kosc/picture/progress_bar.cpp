#include "picture/progress_bar.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>

#include "kosc_transfer/transfer.h"
#include "picture/terminal.h"
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

// Whether it is seen does not matter. dprintf(), which would do, is not there on all systems.
void show(int descriptor, const std::string& text)
{
    [[maybe_unused]] const auto written = write(descriptor, text.data(), text.size());
}

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
    std::string line = text(speed < 10.0 ? ", %.1fx speed" : ", %.0fx speed", speed);
    if (total_seconds_ > 0.0) {
        line = percentage(share) + line;
        line += speed > 0.0 ? ", " + as_clock((1.0 - share) * total_seconds_ / speed) + " left" : "";
    } else {
        line = as_clock(seconds) + " heard" + line;
    }
    if (messages) {
        line += ", " + std::to_string(*messages) + (*messages == 1 ? " message" : " messages");
    }
    line = with_bar(total_seconds_ > 0.0 ? std::optional(share) : std::nullopt, line, terminal_columns(STDERR_FILENO));
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

sending_bar::sending_bar(int descriptor, bool wanted)
    : descriptor_(wanted && isatty(descriptor) != 0 ? descriptor : -1), next_(start_ + PATIENCE)
{
}

void sending_bar::update(uint64_t messages, uint64_t all)
{
    const clock::time_point now = clock::now();
    if (descriptor_ < 0 || now < next_) {
        return;
    }
    next_ = now + INTERVAL;
    const double rate = static_cast<double>(messages) / std::chrono::duration<double>(now - start_).count();
    show(descriptor_, "\r" + transfer_line(messages, all, rate, terminal_columns(descriptor_)) + "\033[K");
    shown_ = true;
}

void sending_bar::clear()
{
    if (shown_) {
        show(descriptor_, "\r\033[K");
        shown_ = false;
    }
}
