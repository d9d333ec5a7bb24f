#include "kosc/channel_smoother.h"

#include <array>
#include <cmath>
#include <complex>
#include <functional>
#include <numeric>
#include <valarray>

#include <gtest/gtest.h>

#include "channels.h"
#include "support/content.h"

namespace {

using kosc_link::random_source;
using response = std::valarray<std::complex<double>>;

smoother_ptr make(uint32_t subcarriers) { return smoother_ptr{channel_smoother_init(subcarriers, 1024, 256)}; }

response echo(uint32_t subcarriers, double delay)
{
    response h(subcarriers);
    for (uint32_t k = 0; k < subcarriers; ++k) {
        h[k] = std::polar(1.0, -2 * M_PI * (384 + k) * delay / 1024);
    }
    return h;
}

response smooth(const channel_smoother_t* s, const response& measured, double noise_ratio)
{
    double_list coefficients(2 * size_t{s->rank});
    response out(measured.size());
    channel_smoother_analyse(s, reinterpret_cast<const double*>(&measured[0]), coefficients.data());
    channel_smoother_synthesise(s, coefficients.data(), noise_ratio, reinterpret_cast<double*>(&out[0]));
    return out;
}

double power(const response& h) { return std::real((h * h.apply(std::conj)).sum()) / static_cast<double>(h.size()); }

TEST(ChannelSmoother, LetsEchoesWithinTheSpreadThroughAndOthersNot)
{
    for (const uint32_t subcarriers : {2U, 60U, 64U, 192U}) {
        const smoother_ptr s = make(subcarriers);
        // What the sequences leave out is the least share of power, 1e-3 of a subcarrier, more at the very ends of the
        // spread.
        for (const double delay : {5.0, 80.0, 128.0, 210.5, 250.0}) {
            const response h = echo(subcarriers, delay);
            EXPECT_LT(power(smooth(s.get(), h, 0.0) - h), 1e-3) << subcarriers << ", " << delay;
        }
    }
    // Far outside, side lobes are left.
    for (const double delay : {-200.0, 450.0, 640.0}) {
        EXPECT_LT(power(smooth(make(64).get(), echo(64, delay), 0.0)), 0.05) << delay;
    }
}

// Among them those whose shift of the inverse iteration met an eigenvalue to the last bit.
TEST(ChannelSmoother, IsOrthonormalForEveryLayoutItTakes)
{
    std::vector<std::array<uint32_t, 3>> layouts = {{5, 64, 6}, {7, 512, 451}, {5, 2048, 1597}, {3, 64, 63}};
    for (uint32_t prefix = 1; prefix < 1024; prefix += prefix % 4 == 0 ? 1 : 3) {
        layouts.push_back({64, 1024, prefix});
    }
    for (const auto& [subcarriers, symbol, prefix] : layouts) {
        const smoother_ptr s{channel_smoother_init(subcarriers, symbol, prefix)};
        ASSERT_NE(s, nullptr) << subcarriers << " of " << symbol << ", prefix " << prefix;
        const auto* const rows = reinterpret_cast<const std::complex<double>*>(s->basis);
        for (uint32_t r = 0; r < s->rank; ++r) {
            for (uint32_t q = 0; q <= r; ++q) {
                const std::complex<double> product = std::inner_product(
                    rows + r * subcarriers, rows + (r + 1) * subcarriers, rows + q * subcarriers,
                    std::complex<double>(), std::plus<>(), [](auto a, auto b) { return a * std::conj(b); });
                ASSERT_LT(std::abs(product - (r == q ? 1.0 : 0.0)), 1e-9) << subcarriers << ", prefix " << prefix;
            }
        }
    }
    EXPECT_FALSE(channel_smoother_init(1, 1024, 256) || channel_smoother_init(64, 1024, 1024));
}

TEST(ChannelSmoother, ProjectsAndTakesMoreFromStrongerNoise)
{
    random_source random{7};
    for (const uint32_t subcarriers : {2U, 60U, 64U, 192U}) {
        SCOPED_TRACE(subcarriers);
        const smoother_ptr s = make(subcarriers);
        response noise(subcarriers);
        for (auto& value : noise) {
            value = {random.gaussian(), random.gaussian()};
        }
        const response once = smooth(s.get(), noise, 0.0);
        EXPECT_LT(power(smooth(s.get(), once, 0.0) - once), 1e-18) << "not for rounding alone";
        EXPECT_NEAR(power(noise), power(once) + power(noise - once), 1e-9) << "not at right angles";
        // A noise ratio of 4 halves what a full sequence, of power 4, lets through, and more so the others.
        EXPECT_LT(power(smooth(s.get(), noise, 4.0)), 0.25 * power(once));
    }
}

} // namespace
