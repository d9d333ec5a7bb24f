// The passes of the transforms that the table of twiddle factors serves.
#ifndef KOSC_MATH_FFT_PASSES_H
#define KOSC_MATH_FFT_PASSES_H

#include "math/fft_table.h"
#include "math/pair.h"

namespace kosc {

constexpr uint32_t FFT_SHORTEST = 4; // transform with two passes

inline constexpr fft_table FFT_TABLE = make_fft_table();

// Where the transforms find every fourth element that they work on; the three behind it lie n/2, n/4 and both further.
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

// A transform under way: real and imaginary parts apart, so that the passes run over contiguous numbers.
struct fft_work {
    double re[FFT_TABLE_LEN];
    double im[FFT_TABLE_LEN];
};

// Numbers a and a + 1 of `z`, multiplied by their factors in the pass over `dual`. The factor of number 0 is 1 and is
// not multiplied by.
template <bool at_start> inline complex_pair twiddle(complex_pair z, const double* wr, const double* wi)
{
    complex_pair product = load_complex(wr, wi) * z;
    if (at_start) {
        product = {with_first_of(z.re, product.re), with_first_of(z.im, product.im)};
    }
    return product;
}

// Two numbers of each of two transforms of `dual` points: those of the second one are multiplied by their factors, then
// they and those of the first become their difference and sum.
template <uint32_t dual, bool at_start> inline void join_two(double* re, double* im, uint32_t a)
{
    const complex_pair x = load_complex(re, im);
    const complex_pair z =
        twiddle<at_start>(load_complex(re + dual, im + dual), FFT_TABLE.re + dual + a, FFT_TABLE.im + dual + a);
    store_complex(re, im, x + z);
    store_complex(re + dual, im + dual, x - z);
}

// Two passes in one: two numbers of each of four transforms of `dual` points.
template <uint32_t dual, bool at_start> inline void join_four(double* re, double* im, uint32_t a)
{
    const double* const wr = FFT_TABLE.re + a;
    const double* const wi = FFT_TABLE.im + a;
    const complex_pair x0 = load_complex(re, im);
    const complex_pair z0 = twiddle<at_start>(load_complex(re + dual, im + dual), wr + dual, wi + dual);
    const complex_pair x1 = load_complex(re + 2 * dual, im + 2 * dual);
    const complex_pair z1 = twiddle<at_start>(load_complex(re + 3 * dual, im + 3 * dual), wr + dual, wi + dual);
    const complex_pair sum = twiddle<at_start>(x1 + z1, wr + 2 * dual, wi + 2 * dual);
    const complex_pair difference = twiddle<false>(x1 - z1, wr + 3 * dual, wi + 3 * dual);
    store_complex(re, im, (x0 + z0) + sum);
    store_complex(re + dual, im + dual, (x0 - z0) + difference);
    store_complex(re + 2 * dual, im + 2 * dual, (x0 + z0) - sum);
    store_complex(re + 3 * dual, im + 3 * dual, (x0 - z0) - difference);
}

template <uint32_t dual> void run_pass(fft_work* w, uint32_t n)
{
    for (uint32_t block = 0; block < n; block += 2 * dual) {
        join_two<dual, true>(w->re + block, w->im + block, 0);
        for (uint32_t a = PAIR; a < dual; a += PAIR) {
            join_two<dual, false>(w->re + block + a, w->im + block + a, a);
        }
    }
}

template <uint32_t dual> void run_two_passes(fft_work* w, uint32_t n)
{
    for (uint32_t block = 0; block < n; block += 4 * dual) {
        join_four<dual, true>(w->re + block, w->im + block, 0);
        for (uint32_t a = PAIR; a < dual; a += PAIR) {
            join_four<dual, false>(w->re + block + a, w->im + block + a, a);
        }
    }
}

// The passes that join transforms of `dual` points, 2 * dual points and so on up to half of `end`.
template <uint32_t dual = 4> void run_passes(fft_work* w, uint32_t n, uint32_t end)
{
    if (4 * dual <= end) {
        run_two_passes<dual>(w, n);
        if constexpr (16 * dual <= FFT_TABLE_LEN) {
            run_passes<4 * dual>(w, n, end);
        } else if constexpr (8 * dual <= FFT_TABLE_LEN) {
            static_assert(dual == 0, "the longest transform is a power of four");
        }
    } else if (2 * dual <= end) {
        run_pass<dual>(w, n);
    }
}

// The first two passes over four elements in bit-reversed order, each with its two parts in one pair, into places `to`
// and behind.
inline void join_first_four(fft_work* w, uint32_t to, pair x0, pair z0, pair x1, pair z1)
{
    constexpr double FACTOR_RE = FFT_TABLE.re[3];
    constexpr double FACTOR_IM = FFT_TABLE.im[3];
    const pair even_sum = x0 + z0;
    const pair even_difference = x0 - z0;
    const pair sum = x1 + z1;
    const pair difference = both(FACTOR_RE) * (x1 - z1) + pair{-FACTOR_IM, FACTOR_IM} * swapped(x1 - z1);
    const pair r0 = even_sum + sum;
    const pair r1 = even_difference + difference;
    const pair r2 = even_sum - sum;
    const pair r3 = even_difference - difference;
    store_complex(w->re + to, w->im + to, {firsts(r0, r1), seconds(r0, r1)});
    store_complex(w->re + to + 2, w->im + to + 2, {firsts(r2, r3), seconds(r2, r3)});
}

inline bool is_power_of_two(uint32_t n) { return n != 0 && (n & (n - 1)) == 0; }

} // namespace kosc

#endif
