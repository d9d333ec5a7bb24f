#include "kosc/fade.h"

#include <gtest/gtest.h>

#include "support/content.h"

namespace {

// More than half of the samples: the ends overlap.
TEST(Fade, StaysInsideTheSamplesAndDoesNothingUnlessEnabledWithOneAndFitting)
{
    const double_list untouched(10, 1.0);
    for (const auto& [enable, len] : {std::pair{0U, 5U}, {2U, 5U}, {1U, 11U}, {1U, UINT32_MAX}, {1U, 0x80000000U}}) {
        double_list samples = untouched;
        do_fade_in_out({enable, len}, samples.data(), 10);
        EXPECT_EQ(samples, untouched) << enable << ", " << len;
    }
    double_list samples = untouched;
    do_fade_in_out({1, 10}, samples.data(), 10);
    EXPECT_NEAR(samples[4], 0.086762, 1e-6); // what two windows of 20 leave next to the middle
    EXPECT_NEAR(samples[5], 0.086762, 1e-6);
}

} // namespace
