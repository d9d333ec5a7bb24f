#include "cancel/resent_frame.h"

#include <algorithm>
#include <cmath>

#include "math/complex_ops.h"
#include "math/constants.h"
#include "math/simd.h"

namespace kosc {
namespace {

constexpr uint32_t LANES = 4; // values computed side by side, in registers of two

// The fade at `u` samples from a symbol's start, between the window's points on a straight line.
double fade_at(const soundcomm_paras_t& paras, double u, double length)
{
    const double fade = paras.cfg.fade_cfg.len;
    if (paras.fade_window == nullptr || (u >= fade && u < length - fade)) {
        return 1.0;
    }
    const double last = 2 * fade - 1;
    const double place = std::clamp(u < fade ? u : u - (length - 2 * fade), 0.0, last);
    const double left = std::min(std::floor(place), last - 1);
    const double* const w = paras.fade_window + static_cast<size_t>(left);
    return w[0] + (place - left) * (w[1] - w[0]);
}

// Where a value lies in its symbol.
struct place {
    const double* symbol;
    double step;        // phase between two subcarriers
    kom_complex factor; // of the first subcarrier, with mixing and fade; 0 where nothing is sent
};

// A value n samples behind the found start is exp(-j*w*n) * fade * sum over k of symbol[k]*exp(j*2*pi*(sc_start_idx +
// k)*(u - cp_len)/symbol_len), where u is the time in its symbol by the clock, and w the band's middle.
place find_place(const soundcomm_paras_t& paras, const baseband& b, const double* sent, const frame_clock& clock,
                 uint32_t m)
{
    const ofdm_cfg& ofdm = paras.cfg.ofdm_cfg;
    const double length = static_cast<double>(ofdm.symbol_len) + ofdm.cp_len;
    const double received = static_cast<double>(m) * b.decimation;
    const double time = clock.sent_time(received);
    const double index = std::floor(time / length);
    if (!(index >= 0 && index < paras.frame.symbols)) {
        return {sent, 0.0, {0.0, 0.0}};
    }
    const double u = time - index * length;
    const double fade = fade_at(paras, u, length);
    const double step = 2 * PI * (u - ofdm.cp_len) / ofdm.symbol_len;
    const double phase = step * ofdm.sc_start_idx - b.middle * received;
    return {sent + size_t{2} * ofdm.sc_num * static_cast<size_t>(index),
            step,
            {fade * std::cos(phase), fade * std::sin(phase)}};
}

// Sums the subcarriers of two neighbouring values by Horner's rule, sum over k of symbol[k] * exp(i*k*step).
struct value_pair {
    simd_complex sum;
    simd_complex turn;
    const double* symbol[2];

    void add(uint32_t k)
    {
        const simd first = load_simd(symbol[0] + size_t{2} * k);
        const simd second = load_simd(symbol[1] + size_t{2} * k);
        sum = sum * turn + simd_complex{interleave_low(first, second), interleave_high(first, second)};
    }
};

value_pair start_pair(const place* two)
{
    value_pair pair = {};
    pair.turn.re = simd{std::cos(two[0].step), std::cos(two[1].step)};
    pair.turn.im = simd{std::sin(two[0].step), std::sin(two[1].step)};
    pair.symbol[0] = two[0].symbol;
    pair.symbol[1] = two[1].symbol;
    return pair;
}

void store_pair(const value_pair& pair, const place* two, double* out)
{
    store(out, 0, kom_complex{pair.sum.re[0], pair.sum.im[0]} * two[0].factor);
    store(out, 1, kom_complex{pair.sum.re[1], pair.sum.im[1]} * two[1].factor);
}

void sum_subcarriers(const place* places, uint32_t sc_num, double* out)
{
    value_pair a = start_pair(places);
    value_pair b = start_pair(places + 2);
    for (uint32_t k = sc_num; k-- > 0;) {
        a.add(k);
        b.add(k);
    }
    store_pair(a, places, out);
    store_pair(b, places + 2, out + 4);
}

} // namespace

void resend_frame(const soundcomm_paras_t& paras, const baseband& b, const double* sent, const frame_clock& clock,
                  double* out)
{
    for (uint32_t m = 0; m < b.frame_len; m += LANES) {
        place places[LANES];
        for (uint32_t j = 0; j < LANES; ++j) {
            places[j] = find_place(paras, b, sent, clock, m + j);
        }
        double values[2 * LANES];
        sum_subcarriers(places, paras.cfg.ofdm_cfg.sc_num, values);
        std::copy_n(values, size_t{2} * std::min(LANES, b.frame_len - m), out + size_t{2} * m);
    }
}

} // namespace kosc
