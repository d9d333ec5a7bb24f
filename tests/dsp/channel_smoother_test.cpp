#include "kosc/channel_smoother.h"

#include <cmath>
#include <complex>

#include <gtest/gtest.h>

#include "channels.h"
#include "support/content.h"

namespace {

using kosc_link::random_source;
using smoother_ptr = owned<channel_smoother_t, channel_smoother_free>;
using response = std::vector<std::complex<double>>;

constexpr uint32_t SUBCARRIERS = 64, SYMBOL_LEN = 1024;
constexpr double SPREAD = 256;

smoother_ptr make() { return smoother_ptr{channel_smoother_init(SUBCARRIERS, SYMBOL_LEN, SPREAD)}; }

response echo(double delay)
{
    response h(SUBCARRIERS);
    for (uint32_t k = 0; k < SUBCARRIERS; ++k) {
        h[k] = std::polar(1.0, -2 * M_PI * (384 + k) * delay / SYMBOL_LEN);
    }
    return h;
}

response smooth(const channel_smoother_t* s, const response& measured, double noise_ratio)
{
    double_list coefficients(2 * size_t{s->rank});
    response out(measured.size());
    channel_smoother_analyse(s, reinterpret_cast<const double*>(measured.data()), coefficients.data());
    channel_smoother_synthesise(s, coefficients.data(), noise_ratio, reinterpret_cast<double*>(out.data()));
    return out;
}

double power(const response& h)
{
    double sum = 0.0;
    for (const auto& value : h) {
        sum += std::norm(value);
    }
    return sum / static_cast<double>(h.size());
}

response difference(response a, const response& b)
{
    for (size_t k = 0; k < a.size(); ++k) {
        a[k] -= b[k];
    }
    return a;
}

TEST(ChannelSmoother, LetsEchoesWithinTheSpreadThroughAndOthersNot)
{
    const smoother_ptr s = make();
    // What the sequences leave out is the least share of power, 1e-3 of a subcarrier, more at the very ends of the
    // spread.
    for (const double delay : {5.0, 80.0, 128.0, 210.5, 250.0}) {
        EXPECT_LT(power(difference(smooth(s.get(), echo(delay), 0.0), echo(delay))), 1e-3) << delay;
    }
    // Far outside, side lobes are left.
    for (const double delay : {-200.0, 450.0, 640.0}) {
        EXPECT_LT(power(smooth(s.get(), echo(delay), 0.0)), 0.05) << delay;
    }
}

TEST(ChannelSmoother, RemovesMostOfTheNoiseAndMoreOfStrongerNoise)
{
    const smoother_ptr s = make();
    random_source random{7};
    response noise(SUBCARRIERS);
    double left = 0.0, left_when_strong = 0.0, all = 0.0;
    for (int trial = 0; trial < 200; ++trial) {
        for (auto& value : noise) {
            value = {random.gaussian(), random.gaussian()};
        }
        all += power(noise);
        left += power(smooth(s.get(), noise, 0.0));
        left_when_strong += power(smooth(s.get(), noise, 4.0));
    }
    // A projection keeps rank of 64 dimensions; 200 trials tell that to three percent.
    EXPECT_NEAR(left / all, s->rank / 64.0, 0.03 * s->rank / 64.0);
    // A noise ratio of 4 halves what a full sequence, of power 4, lets through: a quarter of the power.
    EXPECT_LT(left_when_strong, 0.25 * left);
}

TEST(ChannelSmoother, MeasuresAlongOrthonormalSequencesThatShareOutAllPower)
{
    for (const uint32_t subcarriers : {2U, 60U, 64U, 192U}) {
        SCOPED_TRACE(subcarriers);
        const smoother_ptr s{channel_smoother_init(subcarriers, SYMBOL_LEN, SPREAD)};
        double total = 0.0;
        for (uint32_t r = 0; r < s->rank; ++r) {
            total += s->share[r];
            double_list row(2 * size_t{s->rank});
            channel_smoother_analyse(s.get(), s->basis + 2 * size_t{subcarriers} * r, row.data());
            for (uint32_t q = 0; q < s->rank; ++q) {
                EXPECT_NEAR(std::hypot(row[2 * q], row[2 * q + 1]), q == r ? 1.0 : 0.0, 1e-9) << r << ", " << q;
            }
        }
        EXPECT_NEAR(total, subcarriers, 0.002) << "all but the shares left out, each below 1e-3";
    }
}

TEST(ChannelSmoother, RefusesSpreadsAndSizesWithoutMeaning)
{
    EXPECT_EQ(channel_smoother_init(1, 1024, 256), nullptr);
    EXPECT_EQ(channel_smoother_init(513, 1024, 256), nullptr);
    for (const double spread : {0.0, -1.0, 1024.0, std::nan("")}) {
        EXPECT_EQ(channel_smoother_init(64, 1024, spread), nullptr) << spread;
    }
}

} // namespace
