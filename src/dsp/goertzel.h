// Spectrum values of a few neighbouring frequencies, which need not lie on any FFT's grid.
#ifndef KOSC_DSP_GOERTZEL_H
#define KOSC_DSP_GOERTZEL_H

#include <cstdint>

namespace kosc {

// out[k] = exp(i*(first + k*step)) for k < count, interleaved.
void fill_phasors(double first, double step, uint32_t count, double* out);

// data[k] *= exp(i*(first + k*step)) for k < count, interleaved.
void rotate(double first, double step, uint32_t count, double* data);

// out[k] = sum of x[n] * exp(-i*w*(n - (length - 1)/2)), w = first + k*step, for k < count: the phase counts from the
// middle of the samples. `work` holds 3*count doubles. All frequencies must keep away from 0 and pi.
// Source: Goertzel 1958, "An algorithm for the evaluation of finite trigonometric series".
void goertzel(const double* x, uint32_t length, double first, double step, uint32_t count, double* work, double* out);

} // namespace kosc

#endif
