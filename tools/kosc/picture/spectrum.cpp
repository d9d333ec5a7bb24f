#include "picture/spectrum.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "audio/audio_file.h"
#include "kosc/fft.h"

namespace {

constexpr uint32_t WINDOW = 1024;

double hann(size_t i)
{
    constexpr double PI = 3.14159265358979323846;
    return 0.5 - 0.5 * std::cos(2.0 * PI * (static_cast<double>(i) + 0.5) / WINDOW);
}

} // namespace

double to_db(double power) { return power > 0.0 ? std::max(10.0 * std::log10(power), SILENCE_DB) : SILENCE_DB; }

spectrum_bins mean_spectrum(const double* samples, size_t count)
{
    // Mean square of the window, and the two halves of the spectrum, of which one is kept.
    constexpr double HANN_POWER = 3.0 / 8.0;
    constexpr double SCALE = 4.0 / (HANN_POWER * WINDOW * WINDOW);
    spectrum_bins bins;
    std::vector<double> data(2 * size_t{WINDOW});
    size_t windows = 0;
    for (size_t start = 0; start + WINDOW <= count; start += WINDOW / 2, ++windows) {
        for (size_t i = 0; i < WINDOW; ++i) {
            data[2 * i] = samples[start + i] * hann(i);
            data[2 * i + 1] = 0.0;
        }
        kom_fft_complex_radix2_forward(data.data(), 1, WINDOW);
        bins.resize(WINDOW / 2);
        for (size_t k = 0; k < bins.size(); ++k) {
            bins[k] += SCALE * (data[2 * k] * data[2 * k] + data[2 * k + 1] * data[2 * k + 1]);
        }
    }
    for (double& bin : bins) {
        bin /= static_cast<double>(windows);
    }
    return bins;
}

double level_db(const spectrum_bins& bins, double low, double high)
{
    const double spacing = static_cast<double>(MODEM_SAMPLE_RATE) / WINDOW;
    double power = 0.0;
    for (auto k = static_cast<size_t>(std::lround(low / spacing)); k < bins.size() && k * spacing < high; ++k) {
        power += bins[k];
    }
    return to_db(power);
}
