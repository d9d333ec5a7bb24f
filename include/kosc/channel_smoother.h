/**
 * @file
 * Smooths a channel response that was measured subcarrier by subcarrier, knowing that its echoes lie close together.
 *
 * The response of echoes with delays anywhere from 0 to `spread` samples, all equally likely, has the correlation
 * sinc((k - l)*spread/symbol_len) * exp(-i*pi*(k - l)*spread/symbol_len) between subcarriers k and l. Its eigenvectors
 * are the discrete prolate spheroidal sequences, shifted to the middle delay; few of them carry all the power. The
 * smoother measures a response along these and weighs each by its share of power against the noise: the linear
 * minimum-mean-square estimate. Nothing is logged.
 * Sources: van de Beek, Edfors, Sandell, Wilson and Borjesson 1995, "On channel estimation in OFDM systems"; Edfors
 * and others 1998, "OFDM channel estimation by singular value decomposition"; Slepian 1978, "Prolate spheroidal wave
 * functions, Fourier analysis, and uncertainty - V".
 */
#ifndef KOSC_CHANNEL_SMOOTHER_H
#define KOSC_CHANNEL_SMOOTHER_H

#include <stdbool.h>
#include <stdint.h>

#include "kosc/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/** A smoother; made by channel_smoother_init() and then never changed. */
typedef struct channel_smoother_t {
    uint32_t sc_num; /**< subcarriers of a response */
    uint32_t rank;   /**< sequences that carry power */
    double* share;   /**< owned; rank values: the power along each sequence, on average, of a response of unit power */
    double* basis;   /**< owned; rank rows of sc_num complex values, orthonormal */
} channel_smoother_t;

/**
 * @param sc_num      neighbouring subcarriers, 2 to 512
 * @param symbol_len  FFT size in samples
 * @param spread      longest delay in samples, above 0 and below symbol_len
 * @return a smoother, for channel_smoother_free(); null when an argument is out of range, memory is short, or no
 *         orthonormal sequences were found (of some 5600 layouts up to 512 subcarriers that were tried, this was none)
 */
KOSC_API channel_smoother_t* channel_smoother_init(uint32_t sc_num, uint32_t symbol_len, double spread);

/** Frees a smoother; null is ignored. */
KOSC_API void channel_smoother_free(channel_smoother_t* smoother);

/**
 * Measures a response along the sequences.
 *
 * @param smoother      from channel_smoother_init()
 * @param response      sc_num complex values
 * @param coefficients  receives `rank` complex values
 */
KOSC_API void channel_smoother_analyse(const channel_smoother_t* smoother, const double* response,
                                       double* coefficients);

/**
 * The smooth response of measured coefficients.
 *
 * @param smoother      from channel_smoother_init()
 * @param coefficients  `rank` complex values
 * @param noise_ratio   noise power over signal power on a subcarrier of the measured response; 0 only projects
 * @param response      receives sc_num complex values
 */
KOSC_API void channel_smoother_synthesise(const channel_smoother_t* smoother, const double* coefficients,
                                          double noise_ratio, double* response);

#ifdef __cplusplus
}
#endif

#endif
