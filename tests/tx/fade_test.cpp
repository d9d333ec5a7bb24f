#include "kosc/fade.h"

#include <gtest/gtest.h>

#include "kosc/filter.h"
#include "support/content.h"

namespace {

TEST(Fade, ScalesBothEndsByTheHalvesOfAWindow)
{
    const std::pair<uint32_t, uint32_t> cases[] = {{80, 1280}, {5, 10}, {7, 10}, {10, 10}, {1, 3}, {0, 3}};
    for (const auto& [fade_len, len] : cases) { // more than half: the ends overlap
        double_list window(2 * fade_len), samples(len, 1.0), expected(len, 1.0);
        blackman(2 * fade_len, window.data());
        for (uint32_t k = 0; k < fade_len; ++k) {
            expected[k] *= window[k];
            expected[len - 1 - k] *= window[2 * fade_len - 1 - k];
        }
        do_fade_in_out({1, fade_len}, samples.data(), len);
        EXPECT_EQ(samples, expected) << fade_len << " of " << len;
    }
}

TEST(Fade, DoesNothingUnlessEnabledWithOneAndFitting)
{
    for (const fade_cfg fade : {fade_cfg{0, 5}, {2, 5}, {UINT32_MAX, 5}, {1, 21}, {1, UINT32_MAX}, {1, 0x80000000}}) {
        double_list samples(20, 1.0);
        do_fade_in_out(fade, samples.data(), 20);
        EXPECT_EQ(samples, double_list(20, 1.0)) << fade.enable << ", " << fade.len;
    }
    do_fade_in_out({1, 5}, nullptr, 20);
}

} // namespace
