#include "math/fft_passes.h"

#include "math/simd.h"

using namespace kosc;

namespace {

// A register of complex values out of arrays of real and imaginary parts: a transform, or the table of its factors.
template <typename SplitComplex> simd_complex load_at(const SplitComplex& z, size_t i)
{
    return load_complex(z.re + i, z.im + i);
}

void store_at(fft_work* w, size_t i, simd_complex z) { store_complex(w->re + i, w->im + i, z); }

// The numbers of `z` times their twiddle factors, from element `factor` of the table on. The first number of a
// transform has the factor 1 and stays as it is: multiplying could turn the sign of a zero.
template <bool at_start> simd_complex twiddle(simd_complex z, size_t factor)
{
    simd_complex product = load_at(FFT_TABLE, factor) * z;
    if (at_start) {
        product = {with_first_lane_of(z.re, product.re), with_first_lane_of(z.im, product.im)};
    }
    return product;
}

// Butterflies a and on of two transforms of `half_len` points, the first one's numbers at i: (x, y) becomes (x + w*y,
// x - w*y).
template <bool at_start> void join_two(fft_work* w, size_t i, size_t half_len, size_t a)
{
    const simd_complex x = load_at(*w, i);
    const simd_complex z = twiddle<at_start>(load_at(*w, i + half_len), half_len + a);
    store_at(w, i, x + z);
    store_at(w, i + half_len, x - z);
}

// The butterflies of two passes over four transforms, so that the numbers between them stay in registers.
template <bool at_start> void join_four(fft_work* w, size_t i, size_t half_len, size_t a)
{
    const simd_complex x0 = load_at(*w, i);
    const simd_complex z0 = twiddle<at_start>(load_at(*w, i + half_len), half_len + a);
    const simd_complex x1 = load_at(*w, i + 2 * half_len);
    const simd_complex z1 = twiddle<at_start>(load_at(*w, i + 3 * half_len), half_len + a);
    const simd_complex sum = twiddle<at_start>(x1 + z1, 2 * half_len + a);
    const simd_complex difference = twiddle<false>(x1 - z1, 3 * half_len + a);
    store_at(w, i, (x0 + z0) + sum);
    store_at(w, i + half_len, (x0 - z0) + difference);
    store_at(w, i + 2 * half_len, (x0 + z0) - sum);
    store_at(w, i + 3 * half_len, (x0 - z0) - difference);
}

void run_pass(fft_work* w, size_t n, size_t half_len)
{
    for (size_t block = 0; block < n; block += 2 * half_len) {
        join_two<true>(w, block, half_len, 0);
        for (size_t a = SIMD_LANES; a < half_len; a += SIMD_LANES) {
            join_two<false>(w, block + a, half_len, a);
        }
    }
}

void run_two_passes(fft_work* w, size_t n, size_t half_len)
{
    for (size_t block = 0; block < n; block += 4 * half_len) {
        join_four<true>(w, block, half_len, 0);
        for (size_t a = SIMD_LANES; a < half_len; a += SIMD_LANES) {
            join_four<false>(w, block + a, half_len, a);
        }
    }
}

// As join_two(), but only the sums or only the differences.
template <bool at_start> void join_half(fft_work* w, size_t i, size_t half_len, size_t a, bool differences)
{
    const simd_complex x = load_at(*w, i);
    const simd_complex z = twiddle<at_start>(load_at(*w, i + half_len), half_len + a);
    if (differences) {
        store_at(w, i + half_len, x - z);
    } else {
        store_at(w, i, x + z);
    }
}

// A pass of which only the sums, or only the differences, of butterflies first .. last - 1 are wanted. Whole registers
// are computed; what else is in them is not used.
void run_half_pass(fft_work* w, size_t n, size_t half_len, size_t first, size_t last, bool differences)
{
    for (size_t block = 0; block < n; block += 2 * half_len) {
        size_t a = first / SIMD_LANES * SIMD_LANES;
        if (a == 0) {
            join_half<true>(w, block, half_len, 0, differences);
            a = SIMD_LANES;
        }
        for (; a < last; a += SIMD_LANES) {
            join_half<false>(w, block + a, half_len, a, differences);
        }
    }
}

void run_needed_passes(fft_work* w, uint32_t n, uint32_t first, uint32_t count)
{
    // The last pass takes bin k from the sum of butterfly k and bin k + n/2 from its difference. Going
    // backwards, a run of `count` bins in one half needs `count` butterflies of that pass, one output of each, and so
    // the same run of bins of both half-length transforms. This holds down to transforms of `whole` points, in which
    // the run is longer than a half or crosses the middle; those are computed whole.
    uint32_t whole = FFT_SHORTEST;
    while (whole < n && (count > whole || first % whole + count > whole)) {
        whole *= 2;
    }
    uint32_t half_len = FFT_SHORTEST;
    for (; 4 * half_len <= whole; half_len *= 4) {
        run_two_passes(w, n, half_len);
    }
    if (2 * half_len <= whole) {
        run_pass(w, n, half_len);
    }
    for (half_len = whole; half_len < n; half_len *= 2) {
        const uint32_t butterfly = first % half_len;
        run_half_pass(w, n, half_len, butterfly, butterfly + count, first % (2 * half_len) >= half_len);
    }
}

} // namespace

#if KOSC_SIMD_BYTES == 16
void kosc::run_passes_by_two(fft_work* w, uint32_t n, uint32_t first, uint32_t count)
{
    run_needed_passes(w, n, first, count);
}

void kosc::run_passes(fft_work* w, uint32_t n, uint32_t first, uint32_t count)
{
#ifdef KOSC_HAS_AVX2
    if (__builtin_cpu_supports("avx2")) {
        run_passes_by_four(w, n, first, count);
        return;
    }
#endif
    run_passes_by_two(w, n, first, count);
}
#else
void kosc::run_passes_by_four(fft_work* w, uint32_t n, uint32_t first, uint32_t count)
{
    run_needed_passes(w, n, first, count);
}
#endif
