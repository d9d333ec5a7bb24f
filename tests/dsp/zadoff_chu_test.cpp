#include "kosc/zadoff_chu.h"

#include <cmath>

#include <gtest/gtest.h>

namespace {

TEST(ZadoffChu, HasTheKnownPhases)
{
    const struct {
        int32_t root;
        uint32_t q;
        int32_t length, n;
        double phase;
    } cases[] = {{1, 0, 63, 1, -M_PI * 2 / 63},      {1, 0, 64, 1, -M_PI / 64},
                 {3, 0, 64, 5, -M_PI * 3 * 25 / 64}, {3, 0, 63, 0, 0},
                 {2, 3, 7, 2, -M_PI * 36 / 7},       {-1, 2, 8, 3, M_PI * 21 / 8}};
    for (const auto& c : cases) {
        double x[2 * 64];
        zc(c.root, c.q, c.length, x);
        EXPECT_NEAR(x[2 * c.n], std::cos(c.phase), 1e-14) << c.length << ", " << c.n; // phases up to 16 radians
        EXPECT_NEAR(x[2 * c.n + 1], std::sin(c.phase), 1e-14) << c.length << ", " << c.n;
    }
    zc(1, 0, -4, nullptr); // writes nothing
}

} // namespace
