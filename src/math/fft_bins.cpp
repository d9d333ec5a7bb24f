#include "math/fft_bins.h"

#include "math/complex_ops.h"
#include "math/fft_start.h"

using namespace kosc;

namespace {

// A pass of which only the sums, or only the differences, of butterflies first .. last - 1 are wanted.
void run_partial_pass(fft_work* w, uint32_t n, uint32_t dual, uint32_t first, uint32_t last, bool differences)
{
    for (uint32_t block = 0; block < n; block += 2 * dual) {
        double* const low_re = w->re + block;
        double* const low_im = w->im + block;
        double* const high_re = low_re + dual;
        double* const high_im = low_im + dual;
        for (uint32_t a = first; a < last; ++a) {
            kom_complex z = {high_re[a], high_im[a]};
            if (a != 0) {
                z = kom_complex{FFT_TABLE.re[dual + a], FFT_TABLE.im[dual + a]} * z;
            }
            if (differences) {
                high_re[a] = low_re[a] - z.re;
                high_im[a] = low_im[a] - z.im;
            } else {
                low_re[a] += z.re;
                low_im[a] += z.im;
            }
        }
    }
}

} // namespace

bool kosc::fft_real_bins(const double* samples, uint32_t n, uint32_t first, uint32_t count, double* bins)
{
    if (!is_power_of_two(n) || !table_serves(n) || count == 0 || uint64_t{first} + count > n) {
        return false;
    }
    fft_work w;
    const uint32_t spread = FFT_TABLE_LEN / n;
    for (uint32_t to = 0; to < n; to += 4) {
        const double* const x = samples + FFT_REVERSED.of[to / FFT_SHORTEST * spread];
        join_first_four(&w, to, pair{x[0], 0.0}, pair{x[n / 2], 0.0}, pair{x[n / 4], 0.0}, pair{x[n / 2 + n / 4], 0.0});
    }
    // The last pass makes bins k of sums and bins k + n/2 of differences of the numbers k of two transforms, and so on
    // down: as soon as only some numbers are wanted, only those of their butterflies are needed.
    uint32_t whole = FFT_SHORTEST;
    while (whole < n && (count > whole || first % whole + count > whole)) {
        whole *= 2;
    }
    run_passes(&w, n, whole);
    for (uint32_t dual = whole; dual < n; dual *= 2) {
        const uint32_t butterfly = first % dual;
        run_partial_pass(&w, n, dual, butterfly, butterfly + count, first % (2 * dual) >= dual);
    }
    for (uint32_t i = 0; i < count; ++i) {
        store(bins, i, {w.re[first + i], w.im[first + i]});
    }
    return true;
}
