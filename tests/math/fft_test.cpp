#include "kosc/fft.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <random>

#include <gtest/gtest.h>

#include "support/content.h"

namespace {

using complex = std::complex<double>;

double_list random_list(size_t count)
{
    std::mt19937 random{1};
    double_list x(count);
    std::generate(x.begin(), x.end(), [&] { return random() / 4294967296.0 - 0.5; });
    return x;
}

TEST(Fft, AgreesWithTheDefinitionAndLeavesTheSlotsBetween)
{
    for (const auto& [n, stride] : {std::pair{1u, 1u}, {2u, 1u}, {4u, 3u}, {64u, 1u}, {512u, 3u}}) {
        const double_list x = random_list(2 * size_t{n} * stride);
        double_list forward = x, inverse = x;
        ASSERT_TRUE(kom_fft_complex_radix2_forward(forward.data(), stride, n));
        ASSERT_TRUE(kom_fft_complex_radix2_inverse(inverse.data(), stride, n));
        for (uint32_t k = 0; k < n * stride; ++k) {
            complex up = {x[2 * k], x[2 * k + 1]}, down = up;
            for (uint32_t j = 0; k % stride == 0 && j < n; ++j) {
                const complex value = {x[2 * stride * j], x[2 * stride * j + 1]};
                const complex turn = std::polar(1.0, 2 * M_PI * (k / stride * j % n) / n);
                up = (j == 0 ? 0 : up) + value * std::conj(turn);
                down = (j == 0 ? 0 : down) + value * turn / static_cast<double>(n);
            }
            const double tolerance = k % stride == 0 ? 1e-14 * n : 0; // n terms round, the twiddle recurrence too
            ASSERT_LE(std::abs(complex(forward[2 * k], forward[2 * k + 1]) - up), tolerance) << n << ", " << k;
            ASSERT_LE(std::abs(complex(inverse[2 * k], inverse[2 * k + 1]) - down), tolerance) << n << ", " << k;
        }
    }
}

TEST(Fft, RefusesOtherLengthsAndLeavesTheDataAlone)
{
    double_list x = random_list(32);
    for (const uint32_t n : {0u, 3u, 6u, 12u, 0x80000001u}) {
        EXPECT_FALSE(kom_fft_complex_radix2_forward(x.data(), 1, n) || kom_fft_complex_radix2_inverse(x.data(), 1, n));
        EXPECT_EQ(x, random_list(32)) << n;
    }
    EXPECT_FALSE(kom_fft_complex_radix2_forward(nullptr, 1, 8) || kom_fft_complex_radix2_inverse(nullptr, 1, 1));
}

} // namespace
