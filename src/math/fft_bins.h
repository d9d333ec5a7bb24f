// Some bins of the transform of a real signal.
#ifndef KOSC_MATH_FFT_BINS_H
#define KOSC_MATH_FFT_BINS_H

#include <cstdint>

namespace kosc {

// Bins first .. first + count - 1 of the forward transform of `n` real samples, as interleaved complex values: those
// of kom_fft_complex_radix2_forward(), computed without the rest. False, nothing written, when n is not a power of two
// up to 1024 or not all bins exist.
bool fft_real_bins(const double* samples, uint32_t n, uint32_t first, uint32_t count, double* bins);

} // namespace kosc

#endif
