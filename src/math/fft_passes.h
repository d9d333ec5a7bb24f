// The passes of the transforms that the table of twiddle factors serves. They are compiled for registers of 16 bytes
// and, where processors may have them, for those of 32; the two give the same numbers.
#ifndef KOSC_MATH_FFT_PASSES_H
#define KOSC_MATH_FFT_PASSES_H

#include "math/fft_table.h"

namespace kosc {

constexpr uint32_t FFT_SHORTEST = 4; // transform with two passes

// A transform under way: real and imaginary parts apart, so that the passes run over contiguous numbers.
struct alignas(32) fft_work {
    double re[FFT_TABLE_LEN];
    double im[FFT_TABLE_LEN];
};

// All passes but the first two over n elements, in registers of two lanes and in those of four. Butterflies that no
// element first .. first + count - 1 of the result depends on are left out (pruning: Markel 1971, "FFT pruning").
void run_passes_by_two(fft_work* w, uint32_t n, uint32_t first, uint32_t count);
void run_passes_by_four(fft_work* w, uint32_t n, uint32_t first, uint32_t count);

// The same in the widest registers that this processor has.
void run_passes(fft_work* w, uint32_t n, uint32_t first, uint32_t count);

} // namespace kosc

#endif
