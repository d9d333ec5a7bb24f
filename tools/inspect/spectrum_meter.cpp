#include "spectrum_meter.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "channels.h"

namespace kosc_inspect {
namespace {

// Rounding to 16 bits leaves white noise of a twelfth of a step squared; a full-scale sine has half a square.
const double ROUNDING_DB = 10.0 * std::log10(2.0 / 12.0 / kosc_link::FULL_SCALE / kosc_link::FULL_SCALE);

} // namespace

spectrum_meter::spectrum_meter(double sample_rate, uint32_t hop, const sound_band& band)
    : sample_rate_(sample_rate), hop_(hop), band_(band), mean_powers_(SPECTRUM_LENGTH / 2),
      log_sums_(SPECTRUM_LENGTH / 2)
{
}

void spectrum_meter::process(const float* samples, size_t count, size_t stride)
{
    for (size_t i = 0; i < count; ++i) {
        block_.push_back(samples[i * stride]);
        if (block_.size() == SPECTRUM_LENGTH) {
            transform();
            block_.erase(block_.begin(), block_.begin() + hop_);
        }
    }
}

void spectrum_meter::finish()
{
    if (block_.size() > SPECTRUM_LENGTH - hop_ || blocks() == 0) {
        block_.resize(SPECTRUM_LENGTH);
        transform();
    }
}

void spectrum_meter::transform()
{
    powers_ = power_spectrum(block_.data());
    const bool sounding = to_db(std::accumulate(powers_.begin(), powers_.end(), 0.0)) > ROUNDING_DB;
    sounding_blocks_ += sounding ? 1 : 0;
    for (size_t k = 0; k < powers_.size(); ++k) {
        mean_powers_[k] += powers_[k];
        log_sums_[k] += sounding ? to_db(powers_[k]) : 0.0;
    }
    const auto level = [&](double low, double high) {
        return static_cast<float>(to_db(power_between(powers_, low, high, sample_rate_)));
    };
    band_levels_.push_back(level(band_.low_hz, band_.high_hz));
    // Most of a room's sounds are low ones; where the band itself is low, what is above it tells.
    constexpr double LOWEST = 300.0, HIGHEST = 15000.0, AWAY = 1.2;
    const bool below = band_.low_hz / AWAY > 4 * LOWEST;
    room_levels_.push_back(below ? level(LOWEST, std::min(band_.low_hz / AWAY, HIGHEST))
                                 : level(band_.high_hz * AWAY, HIGHEST));
}

double spectrum_meter::level(double low, double high) const
{
    return blocks() == 0 ? SILENCE_DB
                         : to_db(power_between(mean_powers_, low, high, sample_rate_) / static_cast<double>(blocks()));
}

std::vector<double> spectrum_meter::typical_levels() const
{
    std::vector<double> levels(log_sums_.size(), SILENCE_DB);
    for (size_t k = 0; k < levels.size() && sounding_blocks_ != 0; ++k) {
        levels[k] = log_sums_[k] / static_cast<double>(sounding_blocks_);
    }
    return levels;
}

std::optional<double> empty_above(const std::vector<double>& typical_levels, double sample_rate, const sound_band& band)
{
    constexpr double SMOOTH_OVER = 400.0, MISSING = 750.0; // of the band, to tell
    const double lowest_edge = std::min(3000.0, band.low_hz + MISSING), highest_edge = band.high_hz - MISSING;
    constexpr double TOP_BEGIN = 1100.0, TOP_END = 200.0; // below half the sample rate
    constexpr double EMPTY_ABOVE_ROUNDING = 8.0, RISE = 8.0;
    constexpr double FOOT = 1000.0, SHOULDER = 2800.0, CLIFF = 14.0, HALF_AMPLITUDE = 6.0;
    const double width = sample_rate / 2 / static_cast<double>(typical_levels.size());
    const auto bin = [&](double hz) {
        return std::min(static_cast<size_t>(std::max(hz, 0.0) / width), typical_levels.size() - 1);
    };
    const double top = mean(typical_levels, bin(sample_rate / 2 - TOP_BEGIN), bin(sample_rate / 2 - TOP_END));
    const double rounding = ROUNDING_DB - 10.0 * std::log10(static_cast<double>(typical_levels.size()));
    if (top > rounding + EMPTY_ABOVE_ROUNDING) {
        return std::nullopt;
    }
    double edge = sample_rate / 2 - TOP_BEGIN;
    while (edge > lowest_edge && mean(typical_levels, bin(edge - SMOOTH_OVER), bin(edge)) < top + RISE) {
        edge -= width;
    }
    const double shoulder = mean(typical_levels, bin(edge - SHOULDER), bin(edge - FOOT));
    if (edge <= lowest_edge || shoulder < top + CLIFF) {
        return std::nullopt;
    }
    while (mean(typical_levels, bin(edge - SMOOTH_OVER), bin(edge)) < shoulder - HALF_AMPLITUDE) {
        edge -= width;
    }
    return edge < highest_edge ? std::optional<double>(edge) : std::nullopt;
}

std::optional<double> steady_tone(const std::vector<double>& typical_levels, double sample_rate, const sound_band& band)
{
    constexpr double STANDS_OUT = 20.0;
    const double width = sample_rate / SPECTRUM_LENGTH;
    const auto begin = typical_levels.begin() + static_cast<ptrdiff_t>(band.low_hz / width);
    const auto end = typical_levels.begin() + std::min(static_cast<ptrdiff_t>(band.high_hz / width) + 1,
                                                       static_cast<ptrdiff_t>(typical_levels.size()));
    const auto peak = std::max_element(begin, end);
    return *peak > median({begin, end}) + STANDS_OUT
               ? std::optional(static_cast<double>(peak - typical_levels.begin()) * width)
               : std::nullopt;
}

double floor_level(const std::vector<float>& levels)
{
    if (levels.empty()) {
        return SILENCE_DB;
    }
    std::vector<float> sorted = levels;
    const auto tenth = sorted.begin() + static_cast<ptrdiff_t>(sorted.size() / 10);
    std::nth_element(sorted.begin(), tenth, sorted.end());
    return *tenth;
}

bool is_gated(const spectrum_meter& spectrum)
{
    constexpr float CLOSED = -93.0F, OPEN = -81.0F; // the first is below the rounding noise of a live recording
    constexpr float LEAKAGE = 25.0F;                // of frames alone into other frequencies
    constexpr uint32_t MIN_CLOSINGS = 3;
    uint32_t closings = 0;
    bool open = false;
    for (size_t i = 0; i < spectrum.blocks(); ++i) {
        const float room = spectrum.room_levels()[i];
        if (open && room < CLOSED) {
            ++closings;
            open = false;
        } else if (room > OPEN && room > spectrum.band_levels()[i] - LEAKAGE) {
            open = true;
        }
    }
    return closings >= MIN_CLOSINGS;
}

} // namespace kosc_inspect
