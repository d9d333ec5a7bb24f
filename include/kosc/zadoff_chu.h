/**
 * @file
 * The constant-amplitude sequence of which the pilots are made.
 */
#ifndef KOSC_ZADOFF_CHU_H
#define KOSC_ZADOFF_CHU_H

#include <stdint.h>

#include "kosc/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Zadoff-Chu sequence x(n) = exp(-i*pi*root*n*(n + p + 2q)/length), with p = length mod 2.
 *
 * @param root    sequence root; the pilots use 1 and 3
 * @param q       shift term of the sequence, 0 for the pilots
 * @param length  complex elements to write; 0 or less writes nothing
 * @param out     2*length doubles, interleaved re, im; the caller's array
 * Source: Chu 1972, "Polyphase codes with good periodic correlation properties".
 */
KOSC_API void zc(int32_t root, uint32_t q, int32_t length, double* out);

#ifdef __cplusplus
}
#endif

#endif
