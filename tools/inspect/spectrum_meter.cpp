#include "spectrum_meter.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "kosc/fft.h"

namespace kosc_inspect {
namespace {

constexpr double PI = 3.141592653589793;
constexpr double LOW_BAND_BEGIN = 300.0;
constexpr double LOW_BAND_END = 15000.0;
// Rounding to 16 bits leaves white noise of a twelfth of a step squared.
const double ROUNDING_DB = 10.0 * std::log10(1.0 / 12.0 / 32768.0 / 32768.0);

double mean(const std::vector<double>& values, size_t first, size_t last)
{
    return std::accumulate(values.begin() + static_cast<ptrdiff_t>(first),
                           values.begin() + static_cast<ptrdiff_t>(last), 0.0) /
           static_cast<double>(last - first);
}

} // namespace

double to_db(double power) { return std::max(10.0 * std::log10(std::max(power, 1e-30)), NO_SIGNAL_DB); }

spectrum_meter::spectrum_meter(double sample_rate, uint32_t hop)
    : bin_width_(sample_rate / LENGTH), hop_(hop), window_(LENGTH), work_(2 * LENGTH), powers_(BINS),
      mean_powers_(BINS), log_sums_(BINS)
{
    for (uint32_t i = 0; i < LENGTH; ++i) {
        window_[i] = 0.5 - 0.5 * std::cos(2 * PI * (i + 0.5) / LENGTH);
    }
}

void spectrum_meter::hear(const float* samples, size_t count, size_t stride)
{
    for (size_t i = 0; i < count; ++i) {
        block_.push_back(samples[i * stride]);
        if (block_.size() == LENGTH) {
            transform();
            block_.erase(block_.begin(), block_.begin() + hop_);
        }
    }
}

void spectrum_meter::finish()
{
    if (block_.size() > LENGTH - hop_ || blocks() == 0) {
        block_.resize(LENGTH);
        transform();
    }
}

void spectrum_meter::transform()
{
    for (uint32_t i = 0; i < LENGTH; ++i) {
        work_[2 * i] = block_[i] * window_[i];
        work_[2 * i + 1] = 0.0;
    }
    kom_fft_complex_radix2_forward(work_.data(), 1, LENGTH);
    constexpr double WINDOW_ENERGY = 0.375 * LENGTH;
    double total = 0.0;
    for (uint32_t k = 0; k < BINS; ++k) {
        powers_[k] =
            2.0 * (work_[2 * k] * work_[2 * k] + work_[2 * k + 1] * work_[2 * k + 1]) / (LENGTH * WINDOW_ENERGY);
        mean_powers_[k] += powers_[k];
        total += powers_[k];
    }
    if (to_db(total) > ROUNDING_DB) {
        ++sounding_blocks_;
        for (uint32_t k = 0; k < BINS; ++k) {
            log_sums_[k] += to_db(powers_[k]);
        }
    }
    band_levels_.push_back(static_cast<float>(to_db(sum(powers_, BAND_LOW, BAND_HIGH))));
    low_levels_.push_back(static_cast<float>(to_db(sum(powers_, LOW_BAND_BEGIN, LOW_BAND_END))));
}

double spectrum_meter::sum(const std::vector<double>& powers, double low, double high) const
{
    const auto first = std::min(static_cast<size_t>(std::lround(low / bin_width_)), powers.size());
    const auto last = std::min(static_cast<size_t>(std::lround(high / bin_width_)) + 1, powers.size());
    return std::accumulate(powers.begin() + static_cast<ptrdiff_t>(first),
                           powers.begin() + static_cast<ptrdiff_t>(last), 0.0);
}

double spectrum_meter::level(double low, double high) const
{
    return blocks() == 0 ? NO_SIGNAL_DB : to_db(sum(mean_powers_, low, high) / static_cast<double>(blocks()));
}

std::vector<double> spectrum_meter::typical_levels() const
{
    std::vector<double> levels(BINS, NO_SIGNAL_DB);
    for (uint32_t k = 0; k < BINS && sounding_blocks_ != 0; ++k) {
        levels[k] = log_sums_[k] / static_cast<double>(sounding_blocks_);
    }
    return levels;
}

std::optional<double> empty_above(const std::vector<double>& typical_levels, double sample_rate)
{
    constexpr double LOWEST_EDGE = 3000.0, HIGHEST_EDGE = 20200.0, SMOOTH_OVER = 400.0;
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
    while (edge > LOWEST_EDGE && mean(typical_levels, bin(edge - SMOOTH_OVER), bin(edge)) < top + RISE) {
        edge -= width;
    }
    const double shoulder = mean(typical_levels, bin(edge - SHOULDER), bin(edge - FOOT));
    if (edge <= LOWEST_EDGE || shoulder < top + CLIFF) {
        return std::nullopt;
    }
    while (mean(typical_levels, bin(edge - SMOOTH_OVER), bin(edge)) < shoulder - HALF_AMPLITUDE) {
        edge -= width;
    }
    return edge < HIGHEST_EDGE ? std::optional<double>(edge) : std::nullopt;
}

double floor_level(const std::vector<float>& levels)
{
    if (levels.empty()) {
        return NO_SIGNAL_DB;
    }
    std::vector<float> sorted = levels;
    const auto tenth = sorted.begin() + static_cast<ptrdiff_t>(sorted.size() / 10);
    std::nth_element(sorted.begin(), tenth, sorted.end());
    return *tenth;
}

bool is_gated(const spectrum_meter& spectrum)
{
    constexpr float CLOSED = -96.0F, OPEN = -84.0F; // the first is below the rounding noise of a live recording
    constexpr float LEAKAGE = 25.0F;                // of frames alone into lower frequencies
    constexpr uint32_t MIN_CLOSINGS = 3;
    uint32_t closings = 0;
    bool open = false;
    for (size_t i = 0; i < spectrum.blocks(); ++i) {
        const float low = spectrum.low_levels()[i];
        if (open && low < CLOSED) {
            ++closings;
            open = false;
        } else if (low > OPEN && low > spectrum.band_levels()[i] - LEAKAGE) {
            open = true;
        }
    }
    return closings >= MIN_CLOSINGS;
}

} // namespace kosc_inspect
