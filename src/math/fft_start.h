// Decimation in time (Cooley and Tukey 1965, "An algorithm for the machine calculation of complex Fourier series"): the
// elements in bit-reversed order, and the first two passes, whose factors are 1 and about -i.
#ifndef KOSC_MATH_FFT_START_H
#define KOSC_MATH_FFT_START_H

#include "math/fft_passes.h"
#include "math/simd.h"

namespace kosc {

// In bit-reversed order, elements 4g .. 4g + 3 come from i, i + n/2, i + n/4 and i + 3n/4, with i the bit-reversed g:
// only every fourth position need be tabulated. A shorter transform takes every 1024/n-th entry.
constexpr uint32_t FFT_GROUPS = FFT_TABLE_LEN / FFT_SHORTEST;

struct reversal_table {
    uint8_t of[FFT_GROUPS] = {};
};

constexpr reversal_table make_reversal_table()
{
    reversal_table table;
    for (uint32_t group = 0; group < FFT_GROUPS; ++group) {
        uint32_t reversed = 0;
        for (uint32_t bit = 1; bit < FFT_GROUPS; bit *= 2) {
            reversed = reversed * 2 + ((group & bit) != 0 ? 1 : 0);
        }
        table.of[group] = static_cast<uint8_t>(reversed);
    }
    return table;
}

inline constexpr reversal_table FFT_REVERSED = make_reversal_table();

// The first two passes over four elements in bit-reversed order, each with its two parts in one register, into places
// `to` and behind.
inline void join_first_four(fft_work* w, uint32_t to, simd x0, simd z0, simd x1, simd z1)
{
    // Element 3 of the table: -i but for its rounding, which is kept.
    constexpr double FACTOR_RE = 1.0 - 2.0 * PASS_ANGLES[1].half_sine * PASS_ANGLES[1].half_sine;
    constexpr double FACTOR_IM = -PASS_ANGLES[1].sine;
    const simd even_sum = x0 + z0;
    const simd even_difference = x0 - z0;
    const simd sum = x1 + z1;
    const simd difference = broadcast(FACTOR_RE) * (x1 - z1) + simd{-FACTOR_IM, FACTOR_IM} * swap_lanes(x1 - z1);
    const simd r0 = even_sum + sum;
    const simd r1 = even_difference + difference;
    const simd r2 = even_sum - sum;
    const simd r3 = even_difference - difference;
    store_complex(w->re + to, w->im + to, {interleave_low(r0, r1), interleave_high(r0, r1)});
    store_complex(w->re + to + 2, w->im + to + 2, {interleave_low(r2, r3), interleave_high(r2, r3)});
}

// Whether a transform of n points can go by the table.
inline bool table_serves(uint32_t n) { return FFT_TABLE_READY && n >= FFT_SHORTEST && n <= FFT_TABLE_LEN; }

inline bool is_power_of_two(uint32_t n) { return n != 0 && (n & (n - 1)) == 0; }

} // namespace kosc

#endif
