/**
 * @file
 * OFDM: subcarrier values to one real time-domain symbol and back, without cyclic prefix. Nothing is logged.
 */
#ifndef KOSC_OFDM_H
#define KOSC_OFDM_H

#include <stdint.h>

#include "kosc/export.h"
#include "kosc/vector.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * A spectrum of `fft_size` bins with `values` from bin `start` on and their conjugates mirrored at the upper end, so
 * that its inverse transform is real. With start 0 the mirror is left out.
 *
 * @param values    n subcarrier values; none give an all-zero spectrum
 * @param fft_size  even
 * @param start     first bin; start + n must be below fft_size / 2
 * @return a new owning vector, or null when a condition fails or memory is short
 */
KOSC_API kom_vector_complex* ofdm_map_subcarries(const kom_vector_complex* values, uint32_t fft_size, uint32_t start);

/** The real part of the inverse FFT of `spectrum` as a new owning vector; null when `spectrum` is null, its size no
 * power of two, or memory is short. */
KOSC_API kom_vector* ofdm_mod_halfcomplex(const kom_vector_complex* spectrum);

/** The unscaled FFT of a real signal as a new owning vector; null as for ofdm_mod_halfcomplex(). */
KOSC_API kom_vector_complex* ofdm_demod_real(const kom_vector* signal);

/** A view of `count` bins from `start` on; the all-zero record when they are not all there. */
KOSC_API kom_vector_complex ofdm_demap_subcarries(const kom_vector_complex* spectrum, uint32_t start, uint32_t count);

#ifdef __cplusplus
}
#endif

#endif
