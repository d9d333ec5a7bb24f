#include "picture/band_meter.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "picture/terminal.h"

namespace {

constexpr size_t INTERVAL = 4800; // samples a line
constexpr double INTERVAL_SECONDS = 0.1;
constexpr double BAND_LOW = 18000.0, BAND_HIGH = 21000.0;
constexpr double FLOOR_RISE_DB = 0.2; // an interval: frames do not lift it, noise that stays does
constexpr double PEAK_OVER_FLOOR_DB = 10.0;

// A bar for each of so many hertz.
constexpr double SHOWN_LOW = 15000.0, SHOWN_HIGH = 24000.0, BAR_WIDTH = 500.0;
constexpr const char* BARS[] = {" ", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
constexpr double BAR_DB = 6.0;
constexpr double LOWEST_BAR_DB = -90.0;

const char* bar(double level)
{
    constexpr double LAST = std::size(BARS) - 1;
    return BARS[static_cast<size_t>(std::clamp((level - LOWEST_BAR_DB) / BAR_DB, 0.0, LAST))];
}

std::string printed(const char* format, double value)
{
    char text[64];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

// The columns of UTF-8 text: its characters.
size_t width_of(const std::string& text)
{
    return static_cast<size_t>(std::count_if(text.begin(), text.end(), [](char letter) {
        constexpr uint8_t CONTINUATION_MASK = 0xC0, CONTINUATION = 0x80;
        return (static_cast<uint8_t>(letter) & CONTINUATION_MASK) != CONTINUATION;
    }));
}

} // namespace

bool band_meter::hear(const std::vector<int16_t>& pcm)
{
    constexpr double FULL_SCALE = 32768.0;
    for (const int16_t sample : pcm) {
        window_.push_back(sample / FULL_SCALE);
    }
    if (window_.size() < INTERVAL) {
        return false;
    }
    measure();
    window_.clear();
    return true;
}

void band_meter::measure()
{
    bins_ = mean_spectrum(window_.data(), window_.size());
    level_ = level_db(bins_, BAND_LOW, BAND_HIGH);
    floor_ = floor_ == 0.0 ? level_ : std::min(level_, floor_ + FLOOR_RISE_DB);
    seconds_since_peak_ += INTERVAL_SECONDS;
    constexpr double SAME_PEAK_SECONDS = 0.35; // about a frame's length
    const bool stands_out = level_ > floor_ + PEAK_OVER_FLOOR_DB;
    if (stands_out && (level_ > peak_ || seconds_since_peak_ > SAME_PEAK_SECONDS || peak_ == 0.0)) {
        peak_ = level_;
        seconds_since_peak_ = 0.0;
    }
}

std::string band_meter::line(size_t columns) const
{
    std::string bars = "15k|";
    for (double low = SHOWN_LOW; low < SHOWN_HIGH; low += BAR_WIDTH) {
        bars += bar(level_db(bins_, low, low + BAR_WIDTH));
    }
    bars += "|24k";
    const std::string level = printed("%4.0f dB", level_), floor = printed("  floor %4.0f dB", floor_);
    const std::string peak =
        peak_ == 0.0 ? "" : printed("  peak %4.0f dB", peak_) + printed(" %.0f s ago", seconds_since_peak_);
    const std::string band = "18-21 kHz: ";
    // From the longest to the shortest.
    for (const std::string& line : {bars + "  " + band + level + floor + peak, bars + "  " + level + floor + peak,
                                    bars + "  " + level + floor, bars + level, band + level, level}) {
        if (width_of(line) <= columns) {
            return line;
        }
    }
    return "";
}

meter_line::meter_line(int descriptor, bool wanted) : descriptor_(wanted && isatty(descriptor) != 0 ? descriptor : -1)
{
}

// The cursor waits at the line's start: when the window becomes narrower, a terminal that breaks its lines anew puts
// all of the broken line behind the cursor, where it is erased. The terminal's own wrapping is off meanwhile, for those
// that draw bars two columns wide.
void meter_line::hear(const std::vector<int16_t>& pcm)
{
    if (descriptor_ >= 0 && meter_.hear(pcm)) {
        const size_t columns = terminal_columns(descriptor_);
        dprintf(descriptor_, "\r\033[J\033[?7l%s\033[?7h\r", meter_.line(columns - 1).c_str());
        shown_ = true;
    }
}

void meter_line::clear()
{
    if (shown_) {
        dprintf(descriptor_, "\r\033[J");
        shown_ = false;
    }
}
