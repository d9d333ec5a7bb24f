/**
 * @file
 * Rate 1/n convolutional code with zero-tail termination, and its hard-decision Viterbi decoder.
 *
 * The encoder's state is the previous K - 1 input bits, the newest in bit K - 2. With input bit b the register is
 * r = state | b << (K - 1), and the next state r >> 1. Polynomials tap the current bit with their bit 0; only their low
 * 8 bits are used, so a constraint length above 8 cannot use its oldest taps.
 * Source: Viterbi 1967, "Error bounds for convolutional codes and an asymptotically optimum decoding algorithm".
 */
#ifndef KOSC_CONV_CODE_H
#define KOSC_CONV_CODE_H

#include <stdbool.h>
#include <stdint.h>

#include "kosc/export.h"

#ifdef __cplusplus
extern "C" {
#endif

struct viterbi64_table;

/** A code; made by conv_code_init() and then never changed. */
typedef struct conv_code_t {
    uint32_t constraint;               /**< constraint length K */
    uint32_t* polynomials;             /**< owned copy of the generators */
    uint32_t polynomial_num;           /**< n, code bits an input bit */
    uint32_t state_num;                /**< 1 << K, metric slots of the decoder: twice the number of states */
    uint8_t* output_table;             /**< owned; state_num * n code bits, those of register r from r * n on */
    struct viterbi64_table* viterbi64; /**< owned; lets codes with K = 7, n <= 3 decode a hundred times faster */
} conv_code_t;

/** Bytes from malloc, one bit a byte, for conv_code_free_data(); {null, 0} on failure. */
typedef struct conv_data_t {
    uint8_t* data; /**< `len` bytes; null on failure */
    uint32_t len;  /**< bits */
} conv_data_t;

/**
 * Builds a code.
 *
 * @param constraint      K, 2 to 24 in practice
 * @param polynomials     generators, each non-zero and below 1 << K; copied
 * @param polynomial_num  how many
 * @return the code, for conv_code_release(); null with ERROR "Invalid para %u, %u, %u" (constraint, whether the pointer
 *         is set, count), "Invalid polynomial %u", "malloc conv_code_t failed.", "malloc polynomials failed." or "fail
 *         to malloc output."; the last also for a table that is unreasonably large
 */
KOSC_API conv_code_t* conv_code_init(uint32_t constraint, const uint32_t* polynomials, uint32_t polynomial_num);

/** Frees a code; null is ignored. */
KOSC_API void conv_code_release(conv_code_t* code);

/** Code bits for `bit_num` input bits: (bit_num + K - 1) * n; 0 for a null code or no bits. */
KOSC_API uint32_t conv_code_encode_length(const conv_code_t* code, uint32_t bit_num);

/**
 * Encodes `bit_num` bits (bit 0 of each byte) and a tail of K - 1 zeros.
 *
 * @return conv_code_encode_length() bits; {null, 0} with WARN "Invalid input to encode." or ERROR "No enough memory."
 */
KOSC_API conv_data_t conv_code_encode(const conv_code_t* code, const uint8_t* bits, uint32_t bit_num);

/**
 * Finds the likeliest input bits of a received block.
 *
 * @param code        from conv_code_init()
 * @param coded       `coded_len` bytes, each 0, 1 or the hole marker 0xFF
 * @param coded_len   a multiple of n
 * @param terminated  whether the block ends with a tail; changes nothing in the output, see viterbi_decode()
 * @return coded_len / n bits, tail included; {null, 0} with ERROR "NULL pointer.", "Data length(%u) isn't dividable by
 *         %u." or one of viterbi_decode()
 */
KOSC_API conv_data_t conv_code_decode_hard(const conv_code_t* code, const uint8_t* coded, uint32_t coded_len,
                                           bool terminated);

/** Code bits an input bit; `code` must not be null. */
KOSC_API uint32_t conv_code_rate(const conv_code_t* code);

/** Frees the data of an encoder or decoder result; null is ignored, `len` is not used. */
KOSC_API void conv_code_free_data(uint8_t* data, uint32_t len);

/**
 * @name Steps
 * @{
 */

/** Reverses `value` over `bit_num` bits (1 to 32): bit j becomes bit bit_num - 1 - j. */
KOSC_API uint32_t reverse_bits(uint8_t value, uint32_t bit_num);

/** Distance of `count` received bits from the expected ones: the sum of their XOR, skipping holes on either side. */
KOSC_API uint32_t branch_metric(const uint8_t* received, const uint8_t* expected, uint32_t count);

/**
 * Viterbi decoder over `step_num` trellis steps of n code bits, Hamming metric.
 *
 * The decoder starts in state 0 and ends in the state with the best metric; the lowest wins ties, at the end as at
 * every merge. There are 2^K metric slots for 2^(K-1) states: slot s and slot s + 2^(K-1) stand for one state, and
 * `terminated` only clears the upper half during the last K - 1 steps.
 *
 * @return step_num bits; {null, 0} with ERROR "failt to alloc memory %d %d.", "failt to alloc current_path_metrics.",
 *         "failt to alloc decoded data.", or ERROR "constraint %u is too short to decode" for K = 1
 */
KOSC_API conv_data_t viterbi_decode(const conv_code_t* code, const uint8_t* coded, uint32_t step_num, bool terminated);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
