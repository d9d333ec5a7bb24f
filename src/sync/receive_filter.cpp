#include "sync/receive_filter.h"

#include <algorithm>
#include <cmath>

#include "math/constants.h"
#include "platform/owned.h"

namespace kosc {
namespace {

constexpr uint32_t FILTER_ORDER = 5;
constexpr double GUARD_BINS_BELOW = 3.0;
constexpr double GUARD_BINS_ABOVE = 2.0;

// A stable filter loses 25 digits of an impulse in 58 time constants of its slowest pole. It is given more, since the
// rounding of the coefficients moves poles.
constexpr double MOST_TIME_CONSTANTS = 400.0;
constexpr double MOST_SAMPLES = 1 << 24;
constexpr double SETTLED = 1e-25;
constexpr double DIVERGED = 1e200;

// Samples in which the slowest pole decays by 1/e. A prototype pole at the angle pi/2n from the imaginary axis, moved
// to a band edge at a distance of `nearest` from its neighbour, 1.0 being half the sample rate, decays by sin(pi/2n) *
// pi * nearest / 2 a sample.
double slowest_time_constant(uint32_t order, double nearest)
{
    return 2.0 / (PI * nearest * std::sin(PI / (2.0 * order)));
}

} // namespace

pass_band receive_band(const ofdm_cfg& ofdm, uint32_t sample_rate)
{
    const double spacing = static_cast<double>(sample_rate) / ofdm.symbol_len;
    return {spacing * (static_cast<double>(ofdm.sc_start_idx) - GUARD_BINS_BELOW),
            spacing * (static_cast<double>(ofdm.sc_start_idx) + ofdm.sc_num + GUARD_BINS_ABOVE)};
}

butterworth_bandpass* create_receive_filter(const pass_band& band, uint32_t sample_rate)
{
    return create_butterworth_bandpass2(FILTER_ORDER, 1, band.low, band.high, sample_rate);
}

bool filter_is_stable(butterworth_bandpass* filter)
{
    const double nearest = std::min({filter->f1, filter->f2 - filter->f1, 1.0 - filter->f2});
    if (!(nearest > 0.0)) {
        return false;
    }
    const double most = std::min(MOST_TIME_CONSTANTS * slowest_time_constant(filter->order, nearest), MOST_SAMPLES);
    butterworth_bandpass_reset_buffer(filter);
    double peak = 0.0;
    uint32_t settled = 0;
    for (double i = 0.0; i < most && settled < filter->nw && peak < DIVERGED; ++i) {
        butterworth_bandpass_filter(filter, i == 0.0 ? 1.0 : 0.0);
        const double newest = std::fabs(filter->w[filter->nw - 2]);
        peak = std::max(peak, newest);
        settled = newest < SETTLED * peak ? settled + 1 : 0;
    }
    butterworth_bandpass_reset_buffer(filter);
    return settled == filter->nw;
}

bool band_is_receivable(const ofdm_cfg& ofdm, uint32_t sample_rate)
{
    const owned<butterworth_bandpass, free_butterworth_bandpass> filter{
        create_receive_filter(receive_band(ofdm, sample_rate), sample_rate)};
    return filter && filter_is_stable(filter.get());
}

} // namespace kosc
