#include "kosc/fft.h"

#include <cmath>

#include "math/complex_ops.h"
#include "math/constants.h"
#include "math/fft_start.h"

using namespace kosc;

namespace {

constexpr double FORWARD = -1.0;
constexpr double INVERSE = 1.0;

// The bit-reversed successor of j within n.
uint32_t next_reversed(uint32_t j, uint32_t n)
{
    uint32_t m = n / 2;
    while (m != 0 && m <= j) {
        j -= m;
        m /= 2;
    }
    return j + m;
}

// Transform of up to FFT_TABLE_LEN elements. The inverse one is the forward one with the two parts in each other's
// place, to the last bit: its factors are the conjugates.
template <bool inverse> void transform_by_table(double* data, uint32_t stride, uint32_t n)
{
    fft_work w;
    const auto element = [=](uint32_t i) {
        const simd z = load_simd(data + size_t{2} * (stride * i));
        return inverse ? swap_lanes(z) : z;
    };
    const uint32_t table_step = FFT_TABLE_LEN / n;
    for (uint32_t to = 0; to < n; to += 4) {
        const uint32_t i = FFT_REVERSED.of[to / FFT_SHORTEST * table_step];
        join_first_four(&w, to, element(i), element(i + n / 2), element(i + n / 4), element(i + n / 2 + n / 4));
    }
    run_passes(&w, n, 0, n);
    for (uint32_t i = 0; i < n; i += SIMD_LANES) {
        const simd_complex z = load_complex(w.re + i, w.im + i);
        const simd first = interleave_low(z.re, z.im);
        const simd second = interleave_high(z.re, z.im);
        store_simd(data + size_t{2} * (stride * i), inverse ? swap_lanes(first) : first);
        store_simd(data + size_t{2} * (stride * (i + 1)), inverse ? swap_lanes(second) : second);
    }
}

// Bit-reversed order, after which the butterflies work on neighbours first.
void reorder(double* data, uint32_t stride, uint32_t n)
{
    for (uint32_t i = 0, j = 0; i + 1 < n; ++i, j = next_reversed(j, n)) {
        if (i < j) {
            const kom_complex kept = load(data, stride * i);
            store(data, stride * i, load(data, stride * j));
            store(data, stride * j, kept);
        }
    }
}

// Transforms that the table does not serve, with the recurrence as it goes.
void transform_by_recurrence(double* data, uint32_t stride, uint32_t n, double sign)
{
    reorder(data, stride, n);
    for (uint32_t half_len = 1; half_len < n; half_len *= 2) {
        const double theta = 2.0 * sign * PI / (2.0 * half_len);
        const double s = std::sin(theta);
        const double t = std::sin(theta / 2.0);
        const double s2 = 2.0 * t * t;
        kom_complex w = {1.0, 0.0};
        for (uint32_t a = 0; a < half_len; ++a) {
            for (uint32_t b = a; b < n; b += 2 * half_len) {
                const uint32_t j = stride * (b + half_len);
                const kom_complex x = load(data, stride * b);
                const kom_complex z = a == 0 ? load(data, j) : w * load(data, j);
                store(data, j, x - z);
                store(data, stride * b, x + z);
            }
            w = {w.re - s * w.im - s2 * w.re, w.im + s * w.re - s2 * w.im};
        }
    }
}

// Decimation in time; false, data untouched, when n is not a power of two.
bool transform(double* data, uint32_t stride, uint32_t n, double sign)
{
    if (data == nullptr || !is_power_of_two(n)) {
        return false;
    }
    if (!table_serves(n)) {
        transform_by_recurrence(data, stride, n, sign);
    } else if (sign == FORWARD) {
        transform_by_table<false>(data, stride, n);
    } else {
        transform_by_table<true>(data, stride, n);
    }
    return true;
}

} // namespace

bool kom_fft_complex_radix2_forward(double* data, uint32_t stride, uint32_t n)
{
    return transform(data, stride, n, FORWARD);
}

bool kom_fft_complex_radix2_inverse(double* data, uint32_t stride, uint32_t n)
{
    if (!transform(data, stride, n, INVERSE)) {
        return false;
    }
    const double f = 1.0 / n;
    for (uint32_t i = 0; i < n; ++i) {
        const kom_complex z = load(data, stride * i);
        store(data, stride * i, {z.re * f, z.im * f});
    }
    return true;
}
