#include "second_look/frame_channel.h"

#include <algorithm>
#include <cmath>

#include "dsp/goertzel.h"
#include "math/constants.h"
#include "second_look/symbol_weights.h"

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

// The channel that symbol `i` went through, along the smoother's sequences: the least-squares estimate received / sent,
// here received * conj(sent), since what was sent has unit power on every subcarrier.
void measure_symbol(const double* sent, uint32_t i, frame_channel* channel)
{
    const soundcomm_paras_t& paras = *channel->paras;
    const double* const values = symbol_row(paras, channel->received, i);
    const double* const known = symbol_row(paras, sent, i);
    for (uint32_t k = 0; k < paras.cfg.ofdm_cfg.sc_num; ++k) {
        store(channel->response, k, load(values, k) * conj(load(known, k)));
    }
    channel_smoother_analyse(channel->smoother, channel->response, coefficient_row(*channel, i));
}

// Sums the coefficients of the measured symbols, each rotated back by its phase, and estimates the noise from what does
// not add up.
//
// Of n symbols with sc_num cells each, the sum s of their coefficients c(i) explains |s|^2 / n of the energy E. The
// rest is noise on n*sc_num - rank degrees of freedom, and the explained part holds as much noise as it has
// coefficients:
//     noise  = (E - |s|^2 / n) / (n*sc_num - rank)
//     signal = (|s|^2 / n - rank*noise) / (n*sc_num)
// Source: Kay 1993, "Fundamentals of statistical signal processing: estimation theory", chapter 8 (least squares).
channel_estimate join_symbols(bool pilots_only, frame_channel* channel)
{
    const soundcomm_paras_t& paras = *channel->paras;
    const uint32_t rank = channel->smoother->rank;
    const uint32_t sc_num = paras.cfg.ofdm_cfg.sc_num;
    double* const joint = channel->joint;
    std::fill_n(joint, size_t{2} * rank, 0.0);
    double energy = 0.0;
    double count = 0.0;
    for (uint32_t i = 0; i < paras.frame.symbols; ++i) {
        if (pilots_only && !is_pilot(paras, i)) {
            continue;
        }
        const kom_complex back = {std::cos(channel->phases[i]), -std::sin(channel->phases[i])};
        for (uint32_t r = 0; r < rank; ++r) {
            store(joint, r, load(joint, r) + load(coefficient_row(*channel, i), r) * back);
        }
        energy += sum_power(symbol_row(paras, channel->received, i), sc_num);
        ++count;
    }
    const double explained = sum_power(joint, rank) / count;
    const double cells = count * sc_num;
    // With as many coefficients as cells everything can be explained, and the noise is not known.
    const double noise =
        cells > rank ? std::max(energy - explained, 0.0) / (cells - rank) : LEAST_POWER_SHARE * energy / cells;
    const double signal = std::max(explained - rank * noise, LEAST_POWER_SHARE * energy) / cells;
    return {count, signal, noise};
}

// Phases of all symbols against the joint channel, arg(sum over r of c(i, r) * conj(joint(r))), smoothed to a parabola:
// what is left of the drift. An error of its rate leaves a slope, one of the rate's change a curve. The parabola is
// fitted by least squares, to polynomials that are orthogonal over the symbols: 1, t and t^2 - mean(t^2), with t
// counted from the frame's middle. The phases are assumed to stay within half a turn, as they do after the drift
// search, and are not unwrapped. Source: Forsythe 1957, "Generation and use of orthogonal polynomials for data-fitting
// with a digital computer".
void fit_phases(frame_channel* channel)
{
    const uint32_t n = channel->paras->frame.symbols;
    const double middle = (n - 1) / 2.0;
    const double spread = n * (static_cast<double>(n) * n - 1) / 12; // sum of (i - middle)^2
    const double mean_square = spread / n;
    double constant = 0.0;
    double slope = 0.0;
    double curve = 0.0;
    double curve_norm = 0.0;
    for (uint32_t i = 0; i < n; ++i) {
        kom_complex product = {0.0, 0.0};
        for (uint32_t r = 0; r < channel->smoother->rank; ++r) {
            product = product + load(coefficient_row(*channel, i), r) * conj(load(channel->joint, r));
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
        channel->phases[i] =
            constant + slope * t + (curve_norm > 0.0 ? curve / curve_norm * (t * t - mean_square) : 0.0);
    }
}

// Whether speech lies far enough below the subcarriers to be removed without tilting the band much.
bool removes_low_sounds(const ofdm_cfg& ofdm) { return ofdm.sc_start_idx >= ofdm.symbol_len / 4; }

} // namespace

// Of take_frame()'s filter, the fourth difference, whose gain is (2 - 2*cos(w))^2.
void init_tilt_gain(frame_channel* channel)
{
    const ofdm_cfg& ofdm = channel->paras->cfg.ofdm_cfg;
    for (uint32_t k = 0; k < ofdm.sc_num; ++k) {
        const double root_gain = 2 - 2 * std::cos(2 * PI * (ofdm.sc_start_idx + k) / ofdm.symbol_len);
        channel->tilt_gain[k] = removes_low_sounds(ofdm) ? 1 / (root_gain * root_gain) : 1.0;
    }
}

// Fourth difference, x(n-2) - 4*x(n-1) + 6*x(n) - 4*x(n+1) + x(n+2): a high-pass without delay, whose five samples are
// short against the prefix, and whose gain init_tilt_gain() undoes on each subcarrier.
void take_frame(const double* frame, frame_channel* channel)
{
    constexpr double KERNEL[] = {6.0, -4.0, 1.0}; // from the middle outwards
    const int64_t length = channel->paras->frame.frame_length;
    double* const out = channel->samples;
    if (!removes_low_sounds(channel->paras->cfg.ofdm_cfg)) {
        std::copy(frame, frame == out ? frame : frame + length, out);
        return;
    }
    double before = 0.0; // the two samples before, which `out` may have replaced
    double earlier = 0.0;
    const auto at = [&](int64_t n) { return n < length ? frame[n] : 0.0; };
    for (int64_t n = 0; n < length; ++n) {
        const double sample = frame[n];
        out[n] = KERNEL[0] * sample + KERNEL[1] * (before + at(n + 1)) + KERNEL[2] * (earlier + at(n + 2));
        earlier = before;
        before = sample;
    }
}

// With the time tau(n) at which received sample n was sent, a subcarrier k is exp(j*unit*k*(tau(n) - start)) in the
// window of a symbol that was sent from `start` on, with unit = 2*pi/symbol_len. Around the middle m of the window
// tau(n) = tau(m) + (1 + rate(m))*(n - m), so that
//     received(k) = exp(j*unit*k*(start - tau(m))) * sum of x(n)*exp(-j*unit*k*(1 + rate(m))*(n - m)):
// the window is moved to whole samples, the rest of its shift is the phase in front. A rate that changes is taken as
// constant within the symbol.
void transform_symbols(const frame_clock& clock, frame_channel* channel)
{
    const soundcomm_paras_t& paras = *channel->paras;
    const ofdm_cfg& ofdm = paras.cfg.ofdm_cfg;
    const double half = (ofdm.symbol_len - 1) / 2.0;
    const double unit = 2 * PI / ofdm.symbol_len;
    const double last_start = static_cast<double>(paras.frame.frame_length) - ofdm.symbol_len;
    for (uint32_t i = 0; i < paras.frame.symbols; ++i) {
        const double start = window_start(paras.cfg, i);
        const double first = std::clamp(std::round(clock.received_time(start + half) - half), 0.0, last_start);
        const double scale = unit * (1 + clock.rate_at(first + half));
        double* const values = symbol_row(paras, channel->received, i);
        goertzel(channel->samples + static_cast<size_t>(first), ofdm.symbol_len, scale * ofdm.sc_start_idx, scale,
                 ofdm.sc_num, channel->work, values);
        const double lag = unit * (start - clock.sent_time(first + half));
        rotate(lag * ofdm.sc_start_idx, lag, ofdm.sc_num, values);
        for (uint32_t k = 0; k < ofdm.sc_num; ++k) {
            store(values, k, load(values, k) * kom_complex{channel->tilt_gain[k], 0.0});
        }
    }
}

// The pilots have no phases against each other: the drift was chosen so that they add up.
channel_estimate estimate_by_pilots(const double* sent, frame_channel* channel)
{
    for (uint32_t i = 0; i < channel->paras->frame.symbols; ++i) {
        channel->phases[i] = 0.0;
        if (is_pilot(*channel->paras, i)) {
            measure_symbol(sent, i, channel);
        }
    }
    return channel->weighted ? join_weighted(true, channel) : join_symbols(true, channel);
}

channel_estimate estimate_by_all(const double* sent, frame_channel* channel)
{
    for (uint32_t i = 0; i < channel->paras->frame.symbols; ++i) {
        measure_symbol(sent, i, channel);
    }
    fit_phases(channel);
    return channel->weighted ? join_weighted(false, channel) : join_symbols(false, channel);
}

// sqrt(sum |y - x|^2 / sum |x|^2) over the data cells, with y what was received and x = exp(j*phase(i))*h(k)*sent(i,
// k). h is the mean over the joined symbols, whose noise is by their number less than that of one.
double error_vector_magnitude(const double* sent, const channel_estimate& estimate, frame_channel* channel)
{
    const soundcomm_paras_t& paras = *channel->paras;
    double* const mean = channel->work; // no more than sc_num complex values
    for (uint32_t r = 0; r < channel->smoother->rank; ++r) {
        store(mean, r, load(channel->joint, r) * kom_complex{1.0 / estimate.symbols, 0.0});
    }
    channel_smoother_synthesise(channel->smoother, mean, estimate.noise / (estimate.signal * estimate.symbols),
                                channel->response);
    double explained = 0.0;
    double unexplained = 0.0;
    for (uint32_t i = 0; i < paras.frame.symbols; ++i) {
        const kom_complex turn = {std::cos(channel->phases[i]), std::sin(channel->phases[i])};
        for (uint32_t k = 0; k < paras.cfg.ofdm_cfg.sc_num && !is_pilot(paras, i); ++k) {
            const kom_complex expected = load(channel->response, k) * turn * load(symbol_row(paras, sent, i), k);
            explained += power(expected);
            unexplained += power(load(symbol_row(paras, channel->received, i), k) - expected);
        }
    }
    return explained > 0.0 ? std::sqrt(unexplained / explained) : 0.0;
}

} // namespace kosc
