#include "frame_band.h"

#include <algorithm>
#include <cmath>

namespace kosc_inspect {

band_signal band_of(const ofdm_cfg& ofdm, const double* samples, size_t count)
{
    constexpr double MARGIN = 3.0; // subcarriers, for drift
    band_signal signal(BAND_SAMPLES);
    std::copy(samples, samples + std::min<size_t>(count, BAND_SAMPLES), signal.begin());
    transform(&signal, true);
    const double scale = static_cast<double>(BAND_SAMPLES) / ofdm.symbol_len;
    for (size_t k = 0; k < signal.size(); ++k) {
        const double subcarrier = static_cast<double>(k) / scale - ofdm.sc_start_idx;
        if (subcarrier < -MARGIN || subcarrier > ofdm.sc_num - 1 + MARGIN) {
            signal[k] = 0.0;
        }
    }
    transform(&signal, false);
    return signal;
}

band_signal subcarriers_of(const ofdm_cfg& ofdm, const double* window)
{
    band_signal spectrum(window, window + ofdm.symbol_len);
    transform(&spectrum, true);
    return {spectrum.begin() + ofdm.sc_start_idx, spectrum.begin() + ofdm.sc_start_idx + ofdm.sc_num};
}

double energy_of(const band_signal& signal, size_t start, size_t count)
{
    double sum = 0.0;
    for (size_t i = start; i < start + count; ++i) {
        sum += std::norm(signal[i]);
    }
    return sum;
}

std::vector<double> likeness(const band_signal& signal, const band_signal& pattern, size_t length)
{
    band_signal spectrum = signal, known = pattern;
    std::fill(known.begin() + static_cast<ptrdiff_t>(length), known.end(), 0.0);
    std::vector<double> energy(signal.size() + length + 1);
    for (size_t i = 0; i + 1 < energy.size(); ++i) {
        energy[i + 1] = energy[i] + (i < signal.size() ? std::norm(signal[i]) : 0.0);
    }
    const double known_energy = energy_of(known, 0, known.size());
    transform(&spectrum, true);
    transform(&known, true);
    for (size_t k = 0; k < spectrum.size(); ++k) {
        spectrum[k] *= std::conj(known[k]);
    }
    transform(&spectrum, false);
    const double least = 1e-4 * energy.back() * static_cast<double>(length) / static_cast<double>(signal.size());
    std::vector<double> shares(signal.size());
    for (size_t n = 0; n < shares.size(); ++n) {
        const double here = std::max(energy[n + length] - energy[n], least + 1e-9);
        shares[n] = std::abs(spectrum[n]) / std::sqrt(here * known_energy);
    }
    return shares;
}

std::complex<double> self_likeness(const band_signal& signal, size_t start, size_t length, size_t lag)
{
    std::complex<double> product = 0.0;
    double first = 1e-9, second = 1e-9;
    for (size_t i = start; i < start + length; ++i) {
        product += signal[i + lag] * std::conj(signal[i]);
        first += std::norm(signal[i]);
        second += std::norm(signal[i + lag]);
    }
    return product / std::sqrt(first * second);
}

} // namespace kosc_inspect
