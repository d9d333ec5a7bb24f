#include "picture/band_meter.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

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

std::string band_meter::line() const
{
    std::string text = "15k|";
    for (double low = SHOWN_LOW; low < SHOWN_HIGH; low += BAR_WIDTH) {
        text += bar(level_db(bins_, low, low + BAR_WIDTH));
    }
    char numbers[128];
    std::snprintf(numbers, sizeof numbers, "|24k  18-21 kHz: %4.0f dB  floor %4.0f dB", level_, floor_);
    text += numbers;
    if (peak_ != 0.0) {
        std::snprintf(numbers, sizeof numbers, "  peak %4.0f dB %.0f s ago", peak_, seconds_since_peak_);
        text += numbers;
    }
    return text;
}
