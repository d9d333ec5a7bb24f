// Power spectra for meters and measurements.
#ifndef KOSC_TOOL_SPECTRUM_H
#define KOSC_TOOL_SPECTRUM_H

#include <cstddef>
#include <vector>

// Power by frequency bin from 0 to half the modem's sample rate; a full-scale sine wave has 1 in all.
using spectrum_bins = std::vector<double>;

// Mean of Hann-windowed periodograms that overlap by half, about 47 Hz apart. Source: Welch 1967, "The use of fast
// Fourier transform for the estimation of power spectra". Empty for less than 1024 samples, which have full scale 1.
spectrum_bins mean_spectrum(const double* samples, size_t count);

// Power from `low` to `high` Hz in dB; at least SILENCE_DB.
double level_db(const spectrum_bins& bins, double low, double high);

constexpr double SILENCE_DB = -150.0;

// 10 log10 of `power`, at least SILENCE_DB.
double to_db(double power);

#endif
