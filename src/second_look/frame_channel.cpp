#include "second_look/frame_channel.h"

#include <algorithm>
#include <cmath>

#include "dsp/band_dft.h"
#include "math/constants.h"

namespace kosc {
namespace {

constexpr double LEAST_POWER_SHARE = 1e-3; // of the signal, when the noise estimate leaves less

double sum_power(const double* data, uint32_t count)
{
    double sum = 0.0;
    for (uint32_t k = 0; k < count; ++k) {
        sum += power(load(data, k));
    }
    return sum;
}

// The channel that symbol `i` went through, along the smoother's sequences.
void measure_symbol(const second_look_t& look, uint32_t i)
{
    for (uint32_t k = 0; k < look.paras->cfg.ofdm_cfg.sc_num; ++k) {
        store(look.response, k, load(received(look, i), k) * conj(load(sent(look, i), k)));
    }
    channel_smoother_analyse(look.smoother, look.response, coefficients(look, i));
}

// Sums the coefficients of the measured symbols, each turned back by its phase, and tells the noise from what does
// not add up.
channel_estimate join_symbols(const second_look_t& look, bool pilots_only)
{
    const uint32_t rank = look.smoother->rank;
    const uint32_t sc_num = look.paras->cfg.ofdm_cfg.sc_num;
    std::fill_n(look.joint, size_t{2} * rank, 0.0);
    double energy = 0.0;
    uint32_t count = 0;
    for (uint32_t i = 0; i < look.paras->frame.symbols; ++i) {
        if (pilots_only && !is_pilot(look, i)) {
            continue;
        }
        const kom_complex back = {std::cos(look.phases[i]), -std::sin(look.phases[i])};
        for (uint32_t r = 0; r < rank; ++r) {
            store(look.joint, r, load(look.joint, r) + load(coefficients(look, i), r) * back);
        }
        energy += sum_power(received(look, i), sc_num);
        ++count;
    }
    const double explained = sum_power(look.joint, rank) / count;
    const double cells = static_cast<double>(count) * sc_num;
    // With as many coefficients as cells everything can be explained, and the noise is not known.
    const double noise =
        cells > rank ? std::max(energy - explained, 0.0) / (cells - rank) : LEAST_POWER_SHARE * energy / cells;
    const double signal = std::max(explained - rank * noise, LEAST_POWER_SHARE * energy) / cells;
    return {count, signal, noise};
}

// Phases of all symbols against the joint channel, smoothed to a parabola: what is left of the drift.
void fit_phases(const second_look_t& look)
{
    const uint32_t n = look.paras->frame.symbols;
    const double middle = (n - 1) / 2.0;
    const double spread = n * (static_cast<double>(n) * n - 1) / 12; // sum of (i - middle)^2
    const double mean_square = spread / n;
    double constant = 0.0;
    double slope = 0.0;
    double curve = 0.0;
    double curve_norm = 0.0;
    for (uint32_t i = 0; i < n; ++i) {
        kom_complex product = {0.0, 0.0};
        for (uint32_t r = 0; r < look.smoother->rank; ++r) {
            product = product + load(coefficients(look, i), r) * conj(load(look.joint, r));
        }
        const double phase = std::atan2(product.im, product.re);
        const double t = i - middle;
        const double q = t * t - mean_square;
        constant += phase / n;
        slope += phase * t / spread;
        curve += phase * q;
        curve_norm += q * q;
    }
    for (uint32_t i = 0; i < n; ++i) {
        const double t = i - middle;
        look.phases[i] = constant + slope * t + (curve_norm > 0.0 ? curve / curve_norm * (t * t - mean_square) : 0.0);
    }
}

} // namespace

// The fourth difference lets pass what lies above and is short against the prefix.
void remove_low_sounds(const second_look_t& look, const double* input)
{
    constexpr double KERNEL[] = {6.0, -4.0, 1.0}; // from the middle outwards
    const int64_t length = look.paras->frame.frame_length;
    if (!removes_low_sounds(look.paras->cfg.ofdm_cfg)) {
        std::copy_n(input, length, look.frame);
        return;
    }
    const auto at = [&](int64_t n) { return n >= 0 && n < length ? input[n] : 0.0; };
    for (int64_t n = 0; n < length; ++n) {
        look.frame[n] = KERNEL[0] * at(n) + KERNEL[1] * (at(n - 1) + at(n + 1)) + KERNEL[2] * (at(n - 2) + at(n + 2));
    }
}

void demodulate(const second_look_t& look, const frame_clock& clock)
{
    const ofdm_cfg& ofdm = look.paras->cfg.ofdm_cfg;
    const double half = (ofdm.symbol_len - 1) / 2.0;
    const double unit = 2 * PI / ofdm.symbol_len;
    const double last_start = static_cast<double>(look.paras->frame.frame_length) - ofdm.symbol_len;
    for (uint32_t i = 0; i < look.paras->frame.symbols; ++i) {
        const double start = window_start(look.paras->cfg, i);
        const double first = std::clamp(std::round(clock.received_time(start + half) - half), 0.0, last_start);
        const double scale = unit * (1 + clock.rate_at(first + half));
        double* const values = received(look, i);
        band_dft(look.frame + static_cast<size_t>(first), ofdm.symbol_len, scale * ofdm.sc_start_idx, scale,
                 ofdm.sc_num, look.work, values);
        const double lag = unit * (start - clock.sent_time(first + half));
        rotate(lag * ofdm.sc_start_idx, lag, ofdm.sc_num, values);
        for (uint32_t k = 0; k < ofdm.sc_num; ++k) {
            store(values, k, load(values, k) * kom_complex{look.evening[k], 0.0});
        }
    }
}

channel_estimate estimate_by_pilots(const second_look_t& look)
{
    for (uint32_t i = 0; i < look.paras->frame.symbols; ++i) {
        look.phases[i] = 0.0;
        if (is_pilot(look, i)) {
            measure_symbol(look, i);
        }
    }
    return join_symbols(look, true);
}

channel_estimate estimate_by_all(const second_look_t& look)
{
    for (uint32_t i = 0; i < look.paras->frame.symbols; ++i) {
        measure_symbol(look, i);
    }
    fit_phases(look);
    return join_symbols(look, false);
}

double error_vector_magnitude(const second_look_t& look, const channel_estimate& estimate)
{
    const uint32_t sc_num = look.paras->cfg.ofdm_cfg.sc_num;
    for (uint32_t r = 0; r < look.smoother->rank; ++r) {
        store(look.own, r, load(look.joint, r) * kom_complex{1.0 / estimate.symbols, 0.0});
    }
    channel_smoother_synthesise(look.smoother, look.own, estimate.noise_ratio(), look.response);
    double explained = 0.0;
    double unexplained = 0.0;
    for (uint32_t i = 0; i < look.paras->frame.symbols; ++i) {
        const kom_complex turn = {std::cos(look.phases[i]), std::sin(look.phases[i])};
        for (uint32_t k = 0; k < sc_num && !is_pilot(look, i); ++k) {
            const kom_complex expected = load(look.response, k) * turn * load(sent(look, i), k);
            explained += power(expected);
            unexplained += power(load(received(look, i), k) - expected);
        }
    }
    return explained > 0.0 ? std::sqrt(unexplained / explained) : 0.0;
}

} // namespace kosc
