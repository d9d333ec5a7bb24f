// Transform of 512 points in single precision, which is enough to search with and half the work of the library's own.
#ifndef KOSC_COMBINE_FLOAT_FFT_H
#define KOSC_COMBINE_FLOAT_FFT_H

#include <cstdint>

namespace kosc {

constexpr uint32_t FLOAT_FFT_LEN = 512;

// A signal or a spectrum, real and imaginary parts apart.
struct float_points {
    float re[FLOAT_FFT_LEN];
    float im[FLOAT_FFT_LEN];
};

// exp(-2*pi*i*k/512).
struct float_fft {
    float cos_of[FLOAT_FFT_LEN];
    float minus_sin_of[FLOAT_FFT_LEN];
};

void init_float_fft(float_fft* fft);

// X[k] = sum of x[j] * exp(-2*pi*i*j*k/512), unscaled, in place; `spare` is overwritten.
// Source: Stockham's form, which needs no reordering: Cochran and others 1967, "What is the fast Fourier transform?".
void transform(const float_fft& fft, float_points* points, float_points* spare);

// x[j] = sum of X[k] * exp(+2*pi*i*j*k/512), unscaled, in place.
void transform_back(const float_fft& fft, float_points* points, float_points* spare);

} // namespace kosc

#endif
