#include "math/fft_bins.h"

#include "math/complex_ops.h"
#include "math/fft_start.h"

using namespace kosc;

bool kosc::fft_real_bins(const double* samples, uint32_t n, uint32_t first, uint32_t count, double* bins)
{
    if (!is_power_of_two(n) || !table_serves(n) || count == 0 || uint64_t{first} + count > n) {
        return false;
    }
    fft_work w;
    const uint32_t table_step = FFT_TABLE_LEN / n;
    for (uint32_t to = 0; to < n; to += 4) {
        const double* const x = samples + FFT_REVERSED.of[to / FFT_SHORTEST * table_step];
        join_first_four(&w, to, simd{x[0], 0.0}, simd{x[n / 2], 0.0}, simd{x[n / 4], 0.0}, simd{x[n / 2 + n / 4], 0.0});
    }
    run_passes(&w, n, first, count);
    for (uint32_t i = 0; i < count; ++i) {
        store(bins, i, {w.re[first + i], w.im[first + i]});
    }
    return true;
}
