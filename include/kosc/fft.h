/**
 * @file
 * In-place radix-2 FFT over interleaved complex doubles.
 *
 * Element k has its real part at data[2*stride*k] and its imaginary part behind it. The twiddle factors follow the
 * trigonometric recurrence, two sines a pass; its rounding is part of the result.
 * Source: Cooley and Tukey 1965, "An algorithm for the machine calculation of complex Fourier series"; recurrence:
 * Singleton 1967, "On computing the fast Fourier transform".
 */
#ifndef KOSC_FFT_H
#define KOSC_FFT_H

#include <stdbool.h>
#include <stdint.h>

#include "kosc/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * X[k] = sum of x[j] * exp(-2*pi*i*j*k/n), unscaled, in place.
 *
 * @param data    holds n complex elements, `stride` apart; elements in between stay untouched
 * @param stride  distance of neighbours, in complex elements
 * @param n       a power of two
 * @return false, data untouched, when `data` is null or n is not a power of two
 */
KOSC_API bool kom_fft_complex_radix2_forward(double* data, uint32_t stride, uint32_t n);

/** x[j] = 1/n * sum of X[k] * exp(+2*pi*i*j*k/n), in place; arguments and result as for the forward transform. */
KOSC_API bool kom_fft_complex_radix2_inverse(double* data, uint32_t stride, uint32_t n);

#ifdef __cplusplus
}
#endif

#endif
