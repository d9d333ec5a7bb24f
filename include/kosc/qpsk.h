/**
 * @file
 * QPSK with unit-energy symbols: the first bit of a pair drives the real axis, the second the imaginary one; a one is
 * the positive side. Nothing is logged.
 */
#ifndef KOSC_QPSK_H
#define KOSC_QPSK_H

#include "kosc/export.h"
#include "kosc/vector.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Symbols of `bits` (any non-zero byte is a one; an odd last bit is ignored) as a new owning vector of size / 2
 * elements; null when `bits` is null or memory is short. */
KOSC_API kom_vector_complex* qpsk_mod(const kom_vector_uint8* bits);

/** Hard bits of `symbols` as a new owning vector of 2 * size elements: 0 where a component is below zero, else 1 (also
 * for zero and for NaN); null when `symbols` is null, too long, or memory is short. */
KOSC_API kom_vector_uint8* qpsk_demod(const kom_vector_complex* symbols);

#ifdef __cplusplus
}
#endif

#endif
