/**
 * @file
 * The systematic (8, 2) block code of minimum distance 5 and the generic routines behind it.
 *
 * A code word is six parity bits and then the two data bits, one bit a byte. Nothing is logged.
 * Source of the method: standard-array (syndrome) decoding, Slepian 1956, "A class of binary signaling alphabets".
 */
#ifndef KOSC_BLOCK_CODE_H
#define KOSC_BLOCK_CODE_H

#include <stdint.h>

#include "kosc/export.h"
#include "kosc/vector.h"

#ifdef __cplusplus
extern "C" {
#endif

/** linear_encode() with the (8, 2) code. */
KOSC_API kom_vector_uint8* encode82(const kom_vector_uint8* bits);

/** syndrome_decode() with the (8, 2) code: corrects any two wrong bits a code word. */
KOSC_API kom_vector_uint8* decode82(const kom_vector_uint8* coded);

/**
 * Encodes blocks of k bits into words of n bits.
 *
 * @param in   bits, a multiple of k
 * @param gen  generator, k rows of n bytes 0 or 1
 * @param n    bits a word
 * @param k    bits a block
 * @return a new owning vector of size / k * n bits; null when an argument is null or 0, the size is no multiple of k,
 *         the result would be too long, or memory is short
 */
KOSC_API kom_vector_uint8* linear_encode(const kom_vector_uint8* in, const uint8_t* gen, uint32_t n, uint32_t k);

/**
 * Decodes words of n bits into blocks of k bits by coset leaders.
 *
 * @param in       bits 0 or 1 (higher bits of a byte are ignored), a multiple of n
 * @param leaders  2^(n-k) rows of n bytes, the error pattern for each syndrome; syndrome bit 0 is the most significant
 * @param check    n rows of n - k bytes, what each received bit adds to the syndrome
 * @param n        bits a word
 * @param k        bits a block
 * @return a new owning vector of size / n * k bits; null as for linear_encode(), or when n - k is not 1 to 31
 */
KOSC_API kom_vector_uint8* syndrome_decode(const kom_vector_uint8* in, const uint8_t* leaders, const uint8_t* check,
                                           uint32_t n, uint32_t k);

#ifdef __cplusplus
}
#endif

#endif
