#include "picture/band_meter.h"

#include <algorithm>
#include <cmath>
#include <iterator>

#include "channels.h"
#include "text.h"

using kosc_inspect::text;

namespace {

constexpr size_t LINE_SAMPLES = 4800;
constexpr double LINE_SECONDS = 0.1;
constexpr double FLOOR_RISE_DB = 0.2; // an interval: frames do not lift it, noise that stays does
constexpr double PEAK_OVER_FLOOR_DB = 10.0;

// Bars, and the hertz of each: around a single band, or all that there is.
constexpr double HIGHEST = 24000.0, AROUND = 3000.0, BAND_BARS = 18.0, BAND_BAR_WIDTH = 500.0, ALL_BAR_WIDTH = 1000.0;
constexpr const char* BARS[] = {" ", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
constexpr double BAR_DB = 6.0;
constexpr double LOWEST_BAR_DB = -90.0;

const char* bar(double level)
{
    constexpr double LAST = std::size(BARS) - 1;
    return BARS[static_cast<size_t>(std::clamp((level - LOWEST_BAR_DB) / BAR_DB, 0.0, LAST))];
}

// The columns of UTF-8 text: its characters.
size_t width_of(const std::string& line)
{
    return static_cast<size_t>(std::count_if(line.begin(), line.end(), [](char letter) {
        constexpr uint8_t CONTINUATION_MASK = 0xC0, CONTINUATION = 0x80;
        return (static_cast<uint8_t>(letter) & CONTINUATION_MASK) != CONTINUATION;
    }));
}

} // namespace

band_meter::band_meter(const band_list& bands)
{
    std::transform(bands.begin(), bands.end(), std::back_inserter(meters_),
                   [](const sound_band& band) { return level_meter{band}; });
}

bool band_meter::process(const std::vector<int16_t>& pcm)
{
    for (const int16_t sample : pcm) {
        window_.push_back(sample / kosc_link::FULL_SCALE);
    }
    if (window_.size() < LINE_SAMPLES) {
        return false;
    }
    bins_ = kosc_inspect::mean_spectrum(window_.data(), window_.size());
    std::for_each(meters_.begin(), meters_.end(), [&](level_meter& each) { each.measure(bins_); });
    window_.clear();
    return true;
}

void level_meter::measure(const kosc_inspect::spectrum_bins& bins)
{
    level = kosc_inspect::level_db(bins, band.low_hz, band.high_hz);
    floor = floor == 0.0 ? level : std::min(level, floor + FLOOR_RISE_DB);
    seconds_since_peak += LINE_SECONDS;
    constexpr double SAME_PEAK_SECONDS = 0.35; // about a frame's length
    const bool stands_out = level > floor + PEAK_OVER_FLOOR_DB;
    if (stands_out && (level > peak || seconds_since_peak > SAME_PEAK_SECONDS || peak == 0.0)) {
        peak = level;
        seconds_since_peak = 0.0;
    }
}

std::string band_meter::bars() const
{
    const bool one = meters_.size() == 1;
    const double width = one ? BAND_BAR_WIDTH : ALL_BAR_WIDTH;
    const double wanted = one ? std::floor((meters_[0].band.low_hz - AROUND) / 1000.0) * 1000.0 : 0.0;
    const double low = std::clamp(wanted, 0.0, HIGHEST - BAND_BARS * BAND_BAR_WIDTH);
    const double high = one ? low + BAND_BARS * BAND_BAR_WIDTH : HIGHEST;
    std::string row;
    for (double from = low; from < high; from += width) {
        row += bar(kosc_inspect::level_db(bins_, from, from + width));
    }
    return text("%.0fk|", low / 1000.0) + row + text("|%.0fk", high / 1000.0);
}

std::string band_meter::line(size_t columns) const
{
    const std::string shown = bars();
    std::string levels, named;
    for (const level_meter& each : meters_) {
        levels += text("%4.0f", each.level) + (&each == &meters_.back() ? " dB" : " ");
        named += (named.empty() ? "" : "  ") + name_of(each.band) + text(": %4.0f dB", each.level);
    }
    std::string floor, peak;
    if (meters_.size() == 1) {
        const level_meter& only = meters_.front();
        floor = text("  floor %4.0f dB", only.floor);
        peak =
            only.peak == 0.0 ? "" : text("  peak %4.0f dB", only.peak) + text(" %.0f s ago", only.seconds_since_peak);
    }
    // From the longest to the shortest.
    for (const std::string& line : {shown + "  " + named + floor + peak, shown + "  " + levels + floor + peak,
                                    shown + "  " + levels + floor, shown + levels, named, levels}) {
        if (width_of(line) <= columns) {
            return line;
        }
    }
    return "";
}

// The cursor waits at the line's start: when the window becomes narrower, a terminal that breaks its lines anew puts
// all of the broken line behind the cursor, where it is erased. The terminal's own wrapping is off meanwhile, for those
// that draw bars two columns wide.
void meter_line::process(const std::vector<int16_t>& pcm, const std::string& instead)
{
    if (enabled() && meter_.process(pcm)) {
        const std::string line = instead.empty() ? meter_.line(columns() - 1) : instead;
        show("\r\033[J\033[?7l" + line + "\033[?7h\r");
    }
}
