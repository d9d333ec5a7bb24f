// Power spectra for meters and measurements. All levels are in dB against a full-scale sine wave, which has 0 dB.
#ifndef KOSC_INSPECT_POWER_SPECTRUM_H
#define KOSC_INSPECT_POWER_SPECTRUM_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kosc_inspect {

constexpr uint32_t SPECTRUM_LENGTH = 1024; // samples that one spectrum is made of
constexpr double SILENCE_DB = -200.0;      // level of digital silence

// Power by frequency bin from 0 to half the sample rate; a full-scale sine wave has 1 in all.
using spectrum_bins = std::vector<double>;

// Hann-windowed periodogram of SPECTRUM_LENGTH samples of full scale 1.
spectrum_bins power_spectrum(const double* samples);

// Mean of periodograms that overlap by half. Source: Welch 1967, "The use of fast Fourier transform for the estimation
// of power spectra". Empty for less than SPECTRUM_LENGTH samples.
spectrum_bins mean_spectrum(const double* samples, size_t count);

// Power of the bins from the one nearest `low` to the one nearest `high`, both in Hz.
double power_between(const spectrum_bins& bins, double low, double high, double sample_rate);

// The same at the modem's rate, in dB.
double level_db(const spectrum_bins& bins, double low, double high);

// Mean of the values from `first` up to `last`, which is not among them.
double mean(const std::vector<double>& values, size_t first, size_t last);

// The middle value; the greater one of two.
double median(std::vector<double> values);

// 10 log10 of `power`, at least SILENCE_DB.
double to_db(double power);

} // namespace kosc_inspect

#endif
