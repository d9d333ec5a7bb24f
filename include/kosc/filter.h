/**
 * @file
 * Butterworth band-pass filter, run sample by sample in direct form II, and the Blackman window.
 *
 * Nothing is logged. Source of the design: Butterworth 1930, "On the theory of filter amplifiers"; band-pass poles by
 * the bilinear transform with closed formulas for the factors 1 + B/z + C/z^2.
 */
#ifndef KOSC_FILTER_H
#define KOSC_FILTER_H

#include <stdint.h>

#include "kosc/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/** A filter of order n: 2n poles, 2n + 1 coefficients each. Only the delay line changes after creation. */
typedef struct butterworth_bandpass {
    uint32_t order; /**< n, order of the low-pass prototype */
    double f1;      /**< lower cut-off, 1.0 = half the sample rate */
    double f2;      /**< upper cut-off, likewise */
    double* b;      /**< numerator */
    uint32_t nb;    /**< numerator coefficients, 2n + 1 */
    double* a;      /**< denominator, a[0] = 1 */
    uint32_t na;    /**< denominator coefficients, 2n + 1 */
    double* w;      /**< delay line, the newest value last */
    uint32_t nw;    /**< its length, 2n + 1 */
} butterworth_bandpass;

/** Symmetric Blackman window of n points into `out` (n doubles): 1.0 for n = 1, nothing for n = 0. */
KOSC_API void blackman(uint32_t n, double* out);

/**
 * Designs a band-pass filter.
 *
 * @param order  n, at least 1; direct form II is usable to about 6
 * @param scale  lowest bit set: unit gain at the centre of the band, else the bare numerator
 * @param f1,f2  cut-offs, 0 < f1 < f2 < 1 with 1.0 = half the sample rate; not checked
 * @return the filter, for free_butterworth_bandpass(); null for order 0 or when memory is short
 */
KOSC_API butterworth_bandpass* create_butterworth_bandpass1(uint32_t order, int32_t scale, double f1, double f2);

/** create_butterworth_bandpass1() with the cut-offs and the sample rate in hertz. */
KOSC_API butterworth_bandpass* create_butterworth_bandpass2(uint32_t order, int32_t scale, double f_low, double f_high,
                                                            double sample_rate);

/** One sample in, one sample out; `filter` must not be null. */
KOSC_API double butterworth_bandpass_filter(butterworth_bandpass* filter, double x);

/** Zeroes the delay line; null is ignored. */
KOSC_API void butterworth_bandpass_reset_buffer(butterworth_bandpass* filter);

/** Frees a filter; null is ignored. */
KOSC_API void free_butterworth_bandpass(butterworth_bandpass* filter);

/**
 * @name Steps
 * @{
 */

/**
 * One direct-form-II step over m = max(nb, na) - 1 delays:
 * v = a[0]*x - a[1]*w[m-1] - a[2]*w[m-2] - ...; result b[0]*v + b[1]*w[m-1] + ..., summed in this order.
 *
 * @param b   numerator, `nb` coefficients
 * @param nb  their number
 * @param a   denominator, `na` coefficients
 * @param na  their number
 * @param w   m + 1 doubles, w[m - 1] the newest delayed value; shifted by one
 * @param x   the input sample
 * @return the output sample; 0.0 when nb or na is 0
 */
KOSC_API double filter(const double* b, uint32_t nb, const double* a, uint32_t na, double* w, double x);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
