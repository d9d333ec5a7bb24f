#include "kosc/filter.h"

#include <cmath>
#include <complex>

#include <gtest/gtest.h>

#include "support/content.h"

namespace {

constexpr uint32_t LENGTH = 4000; // in which every impulse response below dies away

TEST(Blackman, RisesFromZeroToOneAndBack)
{
    double window[5] = {9, 9, 9, 9, 9}, alone = 9;
    blackman(5, window);
    blackman(1, &alone);
    EXPECT_EQ(alone, 1.0);
    for (const auto& [i, value] : {std::pair{0, 0.0}, {1, 0.34}, {2, 1.0}, {3, 0.34}, {4, 0.0}}) {
        EXPECT_NEAR(window[i], value, 1e-15) << i;
    }
}

// Butterworth's magnitude over the frequency that the bilinear transform maps to tan(pi*f/2): 1 at the geometric
// centre, 1/sqrt(2) at the cut-offs. Source: Oppenheim and Schafer, "Discrete-Time Signal Processing".
TEST(Butterworth, PassesEveryFrequencyAsItsOrderAndCutOffsSay)
{
    const struct {
        uint32_t order;
        double f_low, f_high;
        double_list numerator;
    } cases[] = {{1, 4800, 14400, {1, 0, -1}},
                 {2, 2400, 9600, {1, 0, -2, 0, 1}},
                 {5, 17859.375, 21046.875, {1, 0, -5, 0, 10, 0, -10, 0, 5, 0, -1}}};
    for (const auto& [order, f_low, f_high, numerator] : cases) {
        const double f1 = f_low * 2.0 / 48000, f2 = f_high * 2.0 / 48000;
        const filter_ptr bare{create_butterworth_bandpass1(order, 2, f1, f2)}; // scale counts by its lowest bit
        const filter_ptr scaled{create_butterworth_bandpass2(order, 3, f_low, f_high, 48000)};
        EXPECT_EQ(list(bare->b, bare->nb), numerator);
        EXPECT_EQ(list(bare->a, bare->na), list(scaled->a, scaled->na));
        double_list impulse_response(LENGTH);
        for (uint32_t t = 0; t < LENGTH; ++t) {
            impulse_response[t] = butterworth_bandpass_filter(scaled.get(), t == 0 ? 1 : 0);
        }
        const double low = std::tan(M_PI * f1 / 2), high = std::tan(M_PI * f2 / 2);
        for (double f = 0.02; f < 1; f += 0.02) {
            std::complex<double> response;
            for (uint32_t t = 0; t < LENGTH; ++t) {
                response += impulse_response[t] * std::polar(1.0, -M_PI * f * t);
            }
            const double at = std::tan(M_PI * f / 2), detuning = (at * at - low * high) / (at * (high - low));
            // The poles of order 5 lie close together, which costs some six of the sixteen digits.
            EXPECT_NEAR(std::abs(response), 1 / std::sqrt(1 + std::pow(detuning, 2.0 * order)), 1e-9) << f;
        }
    }
}

} // namespace
