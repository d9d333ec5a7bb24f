// Correlation of a stream with a fixed pattern of 1024 samples, many positions at a time.
//
// Overlap-save throws the wrapped outputs of a product away, so the product may wrap with either sign. Products of real
// blocks of 2M samples modulo x^2M + 1 are products of M complex numbers x[j] + i*x[j + M] modulo x^M - i, and such a
// ring splits into four smaller ones, x^m - r*i^k, with one complex factor a ring: no reordering, no untangling of real
// spectra, only contiguous loops. The smallest rings, of four numbers, are multiplied out.
// Sources: overlap-save, Stockham 1966, "High-speed convolution and correlation"; splitting of rings, Bernstein 2001,
// "Multidigit multiplication for mathematicians".
#ifndef KOSC_SYNC_OVERLAP_SAVE_H
#define KOSC_SYNC_OVERLAP_SAVE_H

#include <cstdint>

struct overlap_save;

namespace kosc {

// The pattern length that the rings are made for.
constexpr uint32_t PATTERN_LEN = 1024;

// Prepares a pattern of PATTERN_LEN samples; about 200 KB. Null when memory is short.
overlap_save* overlap_save_init(const double* pattern);

// Null is ignored.
void overlap_save_free(overlap_save* engine);

// products[p] = sum of signal[p + i] * pattern[i] over i < PATTERN_LEN, for p < count. `signal` holds count +
// PATTERN_LEN - 1 samples. The error is some 1e-15 of the energy of the loudest 4096 samples around.
void overlap_save_run(overlap_save* engine, const double* signal, uint32_t count, double* products);

} // namespace kosc

#endif
