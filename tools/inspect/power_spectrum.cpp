#include "power_spectrum.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <numeric>

#include "channels.h"
#include "modem.h"
#include "transform.h"

namespace kosc_inspect {
namespace {

const std::vector<double>& hann_window()
{
    static const std::vector<double> window = [] {
        std::vector<double> values(SPECTRUM_LENGTH);
        for (uint32_t i = 0; i < SPECTRUM_LENGTH; ++i) {
            values[i] = 0.5 - 0.5 * std::cos(2.0 * kosc_link::PI * (i + 0.5) / SPECTRUM_LENGTH);
        }
        return values;
    }();
    return window;
}

} // namespace

double mean(const std::vector<double>& values, size_t first, size_t last)
{
    return std::accumulate(values.begin() + static_cast<ptrdiff_t>(first),
                           values.begin() + static_cast<ptrdiff_t>(last), 0.0) /
           static_cast<double>(last - first);
}

double median(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

double to_db(double power) { return power > 0.0 ? std::max(10.0 * std::log10(power), SILENCE_DB) : SILENCE_DB; }

spectrum_bins power_spectrum(const double* samples)
{
    // Mean square of the window, a sine's mean square, and the two halves of the spectrum, of which one is kept.
    constexpr double HANN_POWER = 3.0 / 8.0;
    constexpr double SCALE = 4.0 / (HANN_POWER * SPECTRUM_LENGTH * SPECTRUM_LENGTH);
    kosc_link::complex_signal data(SPECTRUM_LENGTH);
    std::transform(samples, samples + SPECTRUM_LENGTH, hann_window().begin(), data.begin(), std::multiplies<>());
    kosc_link::transform(&data, true);
    spectrum_bins bins(SPECTRUM_LENGTH / 2);
    std::transform(data.begin(), data.begin() + SPECTRUM_LENGTH / 2, bins.begin(),
                   [](const std::complex<double>& value) { return SCALE * std::norm(value); });
    return bins;
}

spectrum_bins mean_spectrum(const double* samples, size_t count)
{
    spectrum_bins mean;
    const size_t blocks = count < SPECTRUM_LENGTH ? 0 : (count - SPECTRUM_LENGTH) / (SPECTRUM_LENGTH / 2) + 1;
    for (size_t i = 0; i < blocks; ++i) {
        const spectrum_bins bins = power_spectrum(samples + i * SPECTRUM_LENGTH / 2);
        mean.resize(bins.size());
        for (size_t k = 0; k < bins.size(); ++k) {
            mean[k] += bins[k] / static_cast<double>(blocks);
        }
    }
    return mean;
}

double power_between(const spectrum_bins& bins, double low, double high, double sample_rate)
{
    const double spacing = sample_rate / SPECTRUM_LENGTH;
    const auto first = std::min(static_cast<size_t>(std::lround(low / spacing)), bins.size());
    const auto last = std::min(static_cast<size_t>(std::lround(high / spacing)) + 1, bins.size());
    return std::accumulate(bins.begin() + static_cast<ptrdiff_t>(first), bins.begin() + static_cast<ptrdiff_t>(last),
                           0.0);
}

double level_db(const spectrum_bins& bins, double low, double high)
{
    return to_db(power_between(bins, low, high, MODEM_RATE));
}

} // namespace kosc_inspect
