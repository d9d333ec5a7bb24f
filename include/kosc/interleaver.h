/**
 * @file
 * Block interleaver: spreads neighbouring code bits over the frame. Nothing is logged.
 */
#ifndef KOSC_INTERLEAVER_H
#define KOSC_INTERLEAVER_H

#include <stdint.h>

#include "kosc/export.h"
#include "kosc/vector.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * block_interleave() with r = stride.
 *
 * @return a new owning vector of the size of `in`; null when `in` is null, `stride` is 0 or memory is short
 */
KOSC_API kom_vector_uint8* interleaver_encode(const kom_vector_uint8* in, uint32_t stride);

/**
 * block_interleave() with r = size / stride: the inverse of interleaver_encode() when the stride divides the size. Null
 * also when there are fewer elements than the stride.
 */
KOSC_API kom_vector_uint8* interleaver_decode(const kom_vector_uint8* in, uint32_t stride);

/**
 * @name Steps
 * @{
 */

/**
 * out[i*c + k] = in[i + k*r] for i < r, k < c = size / r: written by rows of r, read by columns. When r does not divide
 * the size, the elements behind r*c are zero. Null when `in` is null, r is 0 or memory is short.
 */
KOSC_API kom_vector_uint8* block_interleave(const kom_vector_uint8* in, uint32_t r);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
