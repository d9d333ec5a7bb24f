#include "second_look/symbol_weights.h"

#include <algorithm>
#include <cmath>

namespace kosc {
namespace {

constexpr double ALIKE = 1.6; // noise over the least: what chance alone makes of equal noise
constexpr double LEAST_WEIGHT = 0.02;
constexpr double LEAST_SHARE = 1e-4;  // of the received power, which the noise is taken not to be below
constexpr double LEAST_SIGNAL = 1e-3; // likewise, for the signal

double sum_power(const double* data, uint32_t count)
{
    double sum = 0.0;
    for (uint32_t k = 0; k < count; ++k) {
        sum += power(load(data, k));
    }
    return sum;
}

// Noise power on a subcarrier of symbol `i`: the energy that its own coefficients leave, on the sc_num - rank degrees
// of freedom that are left.
double symbol_noise(const frame_channel& channel, uint32_t i, double energy)
{
    const uint32_t sc_num = channel.paras->cfg.ofdm_cfg.sc_num;
    const uint32_t rank = channel.smoother->rank;
    const double left = energy - sum_power(coefficient_row(channel, i), rank);
    return std::max(left, 0.0) / std::max(sc_num - rank, 1U);
}

} // namespace

// The sum s of coefficients with weights w(i) = v/v(i), where v(i) is the noise of symbol i and v that of weight 1,
// holds v * sum w of noise a coefficient, so that
//     signal = (|s|^2 / (sum w)^2 - rank * v / sum w) / sc_num.
//
// Maximum-ratio weights, 1/noise, cut to 1 where the noise is much like the least: measured on few degrees of freedom
// it scatters, and weights that follow that lose more than they gain.
// Source: Brennan 1959, "Linear diversity combining techniques".
channel_estimate join_weighted(bool pilots_only, frame_channel* channel)
{
    const soundcomm_paras_t& paras = *channel->paras;
    const uint32_t rank = channel->smoother->rank;
    const uint32_t sc_num = paras.cfg.ofdm_cfg.sc_num;
    double* const weights = channel->weights;
    double energy = 0.0;
    double least = INFINITY;
    for (uint32_t i = 0; i < paras.frame.symbols; ++i) { // first the noise of each, where its weight will be
        weights[i] = 0.0;
        if (!pilots_only || is_pilot(paras, i)) {
            const double received = sum_power(symbol_row(paras, channel->received, i), sc_num);
            energy += received;
            weights[i] = symbol_noise(*channel, i, received);
            least = std::min(least, weights[i]);
        }
    }
    const double cells = static_cast<double>(paras.frame.symbols) * sc_num;
    least = std::max(least, LEAST_SHARE * energy / cells);
    std::fill_n(channel->joint, size_t{2} * rank, 0.0);
    double sum = 0.0;
    double quiet_noise = 0.0;
    double quiet = 0.0;
    for (uint32_t i = 0; i < paras.frame.symbols; ++i) {
        if (pilots_only && !is_pilot(paras, i)) {
            continue;
        }
        const double ratio = weights[i] / least;
        const double w = ratio < ALIKE ? 1.0 : std::max(1.0 / ratio, LEAST_WEIGHT);
        if (ratio < ALIKE) {
            quiet_noise += weights[i];
            quiet += 1.0;
        }
        const kom_complex back = {w * std::cos(channel->phases[i]), -w * std::sin(channel->phases[i])};
        for (uint32_t r = 0; r < rank; ++r) {
            store(channel->joint, r, load(channel->joint, r) + load(coefficient_row(*channel, i), r) * back);
        }
        weights[i] = w;
        sum += w;
    }
    const double noise = std::max(quiet_noise / std::max(quiet, 1.0), least);
    const double explained = sum_power(channel->joint, rank) / (sum * sum) - rank * noise / sum;
    return {sum, std::max(explained / sc_num, LEAST_SIGNAL * energy / cells), noise};
}

// What was received of a subcarrier has the power |h|^2 + v(i), with the response h and the symbol's noise v(i), which
// the mean of |received|^2 - |h|^2 over the subcarriers therefore measures.
double decision_weight(const frame_channel& channel, uint32_t i, double noise, bool leave_out)
{
    const soundcomm_paras_t& paras = *channel.paras;
    const uint32_t sc_num = paras.cfg.ofdm_cfg.sc_num;
    const double left = sum_power(symbol_row(paras, channel.received, i), sc_num) - sum_power(channel.response, sc_num);
    double measured = std::max(left / sc_num, 0.0);
    if (leave_out && channel.weights[i] > 0.0) {
        measured = (measured + noise / channel.weights[i]) / 2;
    }
    const double ratio = measured / std::max(noise, 1e-30);
    return ratio < ALIKE ? 1.0 : ALIKE / ratio;
}

} // namespace kosc
