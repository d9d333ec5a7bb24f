// Spectrum values between the grid points of an FFT, against their defining sum.
#include "dsp/goertzel.h"

#include <complex>
#include <vector>

#include <gtest/gtest.h>

namespace {

TEST(Goertzel, SumsWithPhasesFromTheMiddleOfEvenAndOddLengths)
{
    constexpr uint32_t COUNT = 5;
    constexpr double FIRST = 2.3561, STEP = 0.0061;
    for (const uint32_t length : {1024U, 255U}) {
        std::vector<double> x(length), work(3 * COUNT), found(2 * COUNT);
        for (uint32_t n = 0; n < length; ++n) {
            x[n] = std::sin(1.0 + 7.0 * n * n);
        }
        kosc::goertzel(x.data(), length, FIRST, STEP, COUNT, work.data(), found.data());
        for (uint32_t k = 0; k < COUNT; ++k) {
            std::complex<double> sum = 0.0;
            for (uint32_t n = 0; n < length; ++n) {
                sum += x[n] * std::polar(1.0, -(FIRST + k * STEP) * (n - (length - 1) / 2.0));
            }
            EXPECT_NEAR(std::abs(sum - std::complex<double>(found[2 * k], found[2 * k + 1])), 0.0, 1e-9) << length;
        }
    }
}

} // namespace
