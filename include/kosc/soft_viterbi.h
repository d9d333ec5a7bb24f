/**
 * @file
 * Soft-decision Viterbi decoder for the codes of conv_code.h.
 *
 * Works in memory that is allocated once, so that a receiver can decode a frame over and over. Nothing is logged.
 * Source: Forney 1973, "The Viterbi algorithm"; soft metrics: Heller and Jacobs 1971, "Viterbi decoding for satellite
 * and space communication".
 */
#ifndef KOSC_SOFT_VITERBI_H
#define KOSC_SOFT_VITERBI_H

#include <stdbool.h>
#include <stdint.h>

#include "kosc/conv_code.h"
#include "kosc/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/** A decoder's work area. */
typedef struct soft_viterbi_t soft_viterbi_t;

/**
 * @param code       the code, which must outlive the decoder
 * @param max_steps  longest block in input bits, tail included
 * @return a decoder, for soft_viterbi_free(); null when `code` is null, its constraint length is not 2 to 16, it has
 *         more than 8 polynomials, or memory is short
 */
KOSC_API soft_viterbi_t* soft_viterbi_init(const conv_code_t* code, uint32_t max_steps);

/** Frees a decoder; null is ignored. */
KOSC_API void soft_viterbi_free(soft_viterbi_t* decoder);

/**
 * Finds the input bits whose code bits agree best with `llr`: the largest sum of +llr over ones and -llr over
 * zeros, among all paths from the zero state to the zero state.
 *
 * @param decoder   from soft_viterbi_init()
 * @param llr       step_num * n log-likelihood ratios at any common scale: positive for a one, 0 for a hole
 * @param step_num  input bits with the tail, from K - 1 to max_steps
 * @param bits      receives step_num bits, one a byte; the last K - 1 are zero. Of equally good paths, the one with
 *                  the even predecessor stays, as in viterbi_decode()
 * @return false, nothing written, when a pointer is null or step_num is out of range
 */
KOSC_API bool soft_viterbi_decode(soft_viterbi_t* decoder, const double* llr, uint32_t step_num, uint8_t* bits);

#ifdef __cplusplus
}
#endif

#endif
