#include "kosc/papr.h"

#include <cmath>

#include <gtest/gtest.h>

#include "support/content.h"

namespace {

TEST(PhasePattern, RotatesEveryValueByItsAngleAndBack)
{
    const double degrees[] = {0, 45, 90, 135};
    double radians[4];
    angle_to_radian(degrees, radians, 4);
    const pattern_ptr pattern{calc_phase_pattern(radians, 4)};
    const double_list start = {3, 0, 3, 0, 3, 0, 3, 0, 0, 5, 0, 5, 0, 5, 0, 5};
    double_list data = start;
    for (const uint32_t n : {0u, 2u, 6u, 7u}) { // no whole patterns
        EXPECT_FALSE(phase_shift(data.data(), n, pattern.get()) || phase_restore(data.data(), n, pattern.get())) << n;
    }
    EXPECT_EQ(data, start);
    EXPECT_TRUE(phase_shift(data.data(), 8, pattern.get()));
    for (uint32_t i = 0; i < 8; ++i) {
        const double turn = M_PI / 4 * (i % 4) + (i < 4 ? 0 : M_PI / 2), radius = i < 4 ? 3 : 5;
        EXPECT_NEAR(data[2 * i], radius * std::cos(turn), 1e-14); // rounding of one product
        EXPECT_NEAR(data[2 * i + 1], radius * std::sin(turn), 1e-14);
    }
    EXPECT_TRUE(phase_restore(data.data(), 8, pattern.get()));
    for (uint32_t i = 0; i < 16; ++i) {
        EXPECT_NEAR(data[i], start[i], 1e-14);
    }
}

TEST(DftSpread, SpreadsAnImpulseOverAllValuesAndGathersItAgain)
{
    for (const uint32_t n : {1u, 16u, 64u}) {
        double_list data(2 * n);
        data[1] = 4;
        EXPECT_TRUE(dft_spread_mod(data.data(), n));
        for (uint32_t i = 0; i < 2 * n; ++i) {
            EXPECT_NEAR(data[i], i % 2 == 0 ? 0 : 4 / std::sqrt(n), 1e-14);
        }
        EXPECT_TRUE(dft_spread_demod(data.data(), n));
        for (uint32_t i = 0; i < 2 * n; ++i) {
            EXPECT_NEAR(data[i], i == 1 ? 4 : 0, 1e-14);
        }
    }
}

TEST(DftSpread, ReportsOtherLengthsThanPowersOfTwoUnderFixedLineNumbers)
{
    const log_capture log;
    double_list data(24, 1.5);
    EXPECT_FALSE(dft_spread_mod(data.data(), 12) || dft_spread_demod(data.data(), 12));
    EXPECT_EQ(data, double_list(24, 1.5));
    EXPECT_EQ(log_capture::lines(),
              (text_list{"[ERROR][Dft spread mod: fft failed][19]\n", "[ERROR][Dft spread demod: ifft failed][39]\n"}));
    soundcomm_set_log_level(0);
    EXPECT_FALSE(dft_spread_mod(data.data(), 0) || dft_spread_demod(nullptr, 4));
    EXPECT_EQ(log_capture::lines().size(), 2u);
}

} // namespace
