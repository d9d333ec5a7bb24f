#include "kosc/fft.h"

#include <cmath>

#include "math/complex_ops.h"
#include "math/constants.h"

using namespace kosc;

namespace {

constexpr double FORWARD = -1.0;
constexpr double INVERSE = 1.0;

bool is_power_of_two(uint32_t n) { return n != 0 && (n & (n - 1)) == 0; }

// Bit-reversed order, after which the butterflies work on neighbours first.
void reorder(double* data, uint32_t stride, uint32_t n)
{
    uint32_t j = 0;
    for (uint32_t i = 0; i + 1 < n; ++i) {
        if (i < j) {
            const kom_complex kept = load(data, stride * i);
            store(data, stride * i, load(data, stride * j));
            store(data, stride * j, kept);
        }
        uint32_t m = n / 2;
        while (m <= j) {
            j -= m;
            m /= 2;
        }
        j += m;
    }
}

void butterfly(double* data, uint32_t i, uint32_t j, kom_complex z)
{
    const kom_complex x = load(data, i);
    store(data, j, x - z);
    store(data, i, x + z);
}

// Decimation in time; false, data untouched, when n is not a power of two.
bool transform(double* data, uint32_t stride, uint32_t n, double sign)
{
    if (data == nullptr || !is_power_of_two(n)) {
        return false;
    }
    reorder(data, stride, n);
    for (uint32_t dual = 1; dual < n; dual *= 2) {
        const double theta = 2.0 * sign * PI / (2.0 * dual);
        const double s = std::sin(theta);
        const double t = std::sin(theta / 2.0);
        const double s2 = 2.0 * t * t;
        for (uint32_t b = 0; b < n; b += 2 * dual) {
            butterfly(data, stride * b, stride * (b + dual), load(data, stride * (b + dual)));
        }
        kom_complex w = {1.0, 0.0};
        for (uint32_t a = 1; a < dual; ++a) {
            w = {w.re - s * w.im - s2 * w.re, w.im + s * w.re - s2 * w.im};
            for (uint32_t b = 0; b < n; b += 2 * dual) {
                const uint32_t j = stride * (b + a + dual);
                butterfly(data, stride * (b + a), j, w * load(data, j));
            }
        }
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
