// The transform that computes a few bins of a real signal, against the whole one.
#include "math/fft_bins.h"

#include <cmath>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "kosc/fft.h"

namespace {

TEST(FftBins, AreThoseOfTheWholeTransformToTheLastBit)
{
    struct {
        uint32_t n, first, count;
    } const cases[] = {{1024, 384, 64}, {1024, 385, 63}, {1024, 0, 1024}, {1024, 511, 3},
                       {256, 3, 70},    {1024, 100, 1},  {8, 5, 2},       {4, 0, 4}};
    for (const auto& [n, first, count] : cases) {
        std::vector<double> samples(n), whole(2 * n), bins(2 * count);
        for (uint32_t i = 0; i < n; ++i) {
            whole[2 * i] = samples[i] = std::sin(1.0 + 7.0 * i * i);
        }
        ASSERT_TRUE(kom_fft_complex_radix2_forward(whole.data(), 1, n));
        ASSERT_TRUE(kosc::fft_real_bins(samples.data(), n, first, count, bins.data()));
        EXPECT_EQ(std::memcmp(bins.data(), &whole[2 * first], bins.size() * sizeof(double)), 0)
            << count << " of " << n << " from " << first;
    }
}

} // namespace
