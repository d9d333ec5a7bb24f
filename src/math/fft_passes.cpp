#include "math/fft_passes.h"

using namespace kosc;

namespace {

// Numbers a and a + 1 of `z`, multiplied by their factors in the pass over `dual`. The factor of number 0 is 1 and is
// not multiplied by.
template <bool at_start> complex_pair twiddle(complex_pair z, const double* wr, const double* wi)
{
    complex_pair product = load_complex(wr, wi) * z;
    if (at_start) {
        product = {with_first_of(z.re, product.re), with_first_of(z.im, product.im)};
    }
    return product;
}

// Two numbers of each of two transforms of `dual` points: those of the second one are multiplied by their factors, then
// they and those of the first become their difference and sum.
template <uint32_t dual, bool at_start> void join_two(double* re, double* im, uint32_t a)
{
    const complex_pair x = load_complex(re, im);
    const complex_pair z =
        twiddle<at_start>(load_complex(re + dual, im + dual), FFT_TABLE.re + dual + a, FFT_TABLE.im + dual + a);
    store_complex(re, im, x + z);
    store_complex(re + dual, im + dual, x - z);
}

// Two passes in one: two numbers of each of four transforms of `dual` points.
template <uint32_t dual, bool at_start> void join_four(double* re, double* im, uint32_t a)
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
template <uint32_t dual> void run_passes_from(fft_work* w, uint32_t n, uint32_t end)
{
    if (4 * dual <= end) {
        run_two_passes<dual>(w, n);
        if constexpr (16 * dual <= FFT_TABLE_LEN) {
            run_passes_from<4 * dual>(w, n, end);
        } else if constexpr (8 * dual <= FFT_TABLE_LEN) {
            static_assert(dual == 0, "the longest transform is a power of four");
        }
    } else if (2 * dual <= end) {
        run_pass<dual>(w, n);
    }
}

} // namespace

void kosc::run_passes(fft_work* w, uint32_t n, uint32_t end) { run_passes_from<FFT_SHORTEST>(w, n, end); }
