#include "second_look/soft_demodulator.h"

#include <cmath>

#include "kosc/papr.h"
#include "second_look/symbol_weights.h"

namespace kosc {
namespace {

// Mean coefficients of the joined symbols: (joint - removed * c(i) * exp(-j*phase(i))) / others, where `others` is the
// sum of the weights that stay and `removed` the weight with which symbol `i` is taken out, 0 where it stays. A channel
// that holds a symbol's own measurement, received * conj(decided), would lean towards what was decided before.
void mean_of_others(const frame_channel& channel, uint32_t i, double others, double removed, double* mean)
{
    const kom_complex back = {removed * std::cos(channel.phases[i]), -removed * std::sin(channel.phases[i])};
    for (uint32_t r = 0; r < channel.smoother->rank; ++r) {
        const kom_complex joint = load(channel.joint, r);
        const kom_complex rest = removed != 0.0 ? joint - load(coefficient_row(channel, i), r) * back : joint;
        store(mean, r, rest * kom_complex{1.0 / others, 0.0});
    }
}

// How the channel is undone: conj(h) * received, the matched filter, divided by |h|^2 + noise for an equaliser.
struct weighing {
    bool divide;
    double noise;
    bool by_symbol; // and symbols of more noise than that count less
};

// Values of data symbol `i` under the response h in the scratch row: received * conj(h) * exp(-j*phase(i)), and for an
// equaliser over |h|^2 + noise, the Wiener filter of one subcarrier with values of unit power. Then the PAPR reduction
// is undone.
void demap_symbol(const frame_channel& channel, uint32_t i, const weighing& w, double* out)
{
    const soundcomm_paras_t& paras = *channel.paras;
    const uint32_t sc_num = paras.cfg.ofdm_cfg.sc_num;
    const double* const values = symbol_row(paras, channel.received, i);
    const kom_complex back = {std::cos(channel.phases[i]), -std::sin(channel.phases[i])};
    for (uint32_t k = 0; k < sc_num; ++k) {
        const kom_complex h = load(channel.response, k);
        const double weight = w.divide ? 1.0 / (power(h) + w.noise) : 1.0;
        store(out, k, load(values, k) * conj(h) * back * kom_complex{weight, 0.0});
    }
    if (paras.cfg.ofdm_cfg.papr == KOSC_PAPR_DFT_SPREAD) {
        dft_spread_demod(out, sc_num);
    } else if (paras.phase_pattern != nullptr) {
        phase_restore(out, sc_num, paras.phase_pattern);
    }
}

void scale_symbol(double factor, uint32_t sc_num, double* values)
{
    for (uint32_t k = 0; k < 2 * sc_num; ++k) {
        values[k] *= factor;
    }
}

void demap_symbols(const channel_estimate& estimate, const weighing& w, bool leave_out, frame_channel* channel,
                   double* out)
{
    const soundcomm_paras_t& paras = *channel->paras;
    double* const mean = channel->work; // no more than sc_num complex values
    for (uint32_t i = 0; i < paras.frame.symbols; ++i) {
        if (!is_pilot(paras, i)) {
            const double weight = channel->weighted ? channel->weights[i] : 1.0;
            const double others = estimate.symbols - (leave_out ? weight : 0.0);
            const double noise_ratio = estimate.noise / (estimate.signal * others); // of a mean of so many
            mean_of_others(*channel, i, others, leave_out ? weight : 0.0, mean);
            channel_smoother_synthesise(channel->smoother, mean, noise_ratio, channel->response);
            demap_symbol(*channel, i, w, out);
            if (w.by_symbol) {
                scale_symbol(decision_weight(*channel, i, estimate.noise, leave_out), paras.cfg.ofdm_cfg.sc_num, out);
            }
            out += size_t{2} * paras.cfg.ofdm_cfg.sc_num;
        }
    }
}

} // namespace

// DFT-spread values are sums over all subcarriers, which add up only after equalisation.
void demap_frame(const channel_estimate& estimate, bool leave_out, frame_channel* channel, double* llr)
{
    const bool spread = channel->paras->cfg.ofdm_cfg.papr == KOSC_PAPR_DFT_SPREAD;
    demap_symbols(estimate, {spread, estimate.noise, channel->weighted && !spread}, leave_out, channel, llr);
}

void equalise_frame(const channel_estimate& estimate, frame_channel* channel, double* symbols)
{
    constexpr double LEAST_SHARE = 1e-3; // of the signal's power, below which a subcarrier is not raised further
    demap_symbols(estimate, {true, LEAST_SHARE * estimate.signal, false}, false, channel, symbols);
}

} // namespace kosc
