/**
 * @file
 * Peak-to-average power reduction: fixed phase patterns over the subcarriers, or DFT spreading.
 *
 * Arrays hold complex values as pairs of doubles, real part first; transforms work in place.
 * Sources: phase rotation, Baeuml, Fischer and Huber 1996, "Reducing the peak-to-average power ratio of multicarrier
 * modulation by selected mapping" (here with one pattern, known to both ends); DFT spreading, Myung, Lim and Goodman
 * 2006, "Single carrier FDMA for uplink wireless transmission".
 */
#ifndef KOSC_PAPR_H
#define KOSC_PAPR_H

#include <stdbool.h>
#include <stdint.h>

#include "kosc/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/** A phase pattern; owns both arrays. */
typedef struct phase_pattern {
    double* shift_factors;   /**< shift_count complex factors (cos, sin) */
    uint32_t shift_count;    /**< pattern length */
    double* restore_factors; /**< their conjugates */
    uint32_t restore_count;  /**< equal to shift_count */
} phase_pattern;

/**
 * A pattern of `count` angles in radians, for free_phase_pattern(); null when `angles` is null, `count` is 0 or memory
 * is short.
 */
KOSC_API phase_pattern* calc_phase_pattern(const double* angles, uint32_t count);

/** Frees a pattern; null is ignored. */
KOSC_API void free_phase_pattern(phase_pattern* pattern);

/**
 * Rotates value i of `data` by the pattern's angle i modulo its length.
 *
 * @param data     n complex values, changed in place
 * @param n        a multiple of the pattern's length, not 0
 * @param pattern  from calc_phase_pattern()
 * @return false, data untouched, when a pointer is null or n does not fit
 */
KOSC_API bool phase_shift(double* data, uint32_t n, const phase_pattern* pattern);

/** Undoes phase_shift(). */
KOSC_API bool phase_restore(double* data, uint32_t n, const phase_pattern* pattern);

/** radians[k] = degrees[k] / 180 * pi, in place too; nothing when a pointer is null. */
KOSC_API void angle_to_radian(const double* degrees, double* radians, uint32_t count);

/**
 * FFT of n complex values scaled by 1/sqrt(n), in place.
 *
 * @return false when `data` is null or n no power of two (ERROR "Dft spread mod: fft failed")
 */
KOSC_API bool dft_spread_mod(double* data, uint32_t n);

/** Undoes dft_spread_mod(); false likewise (ERROR "Dft spread demod: ifft failed"). */
KOSC_API bool dft_spread_demod(double* data, uint32_t n);

#ifdef __cplusplus
}
#endif

#endif
