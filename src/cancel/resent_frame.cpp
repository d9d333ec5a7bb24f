#include "cancel/resent_frame.h"

#include <algorithm>
#include <cmath>

#include "math/complex_ops.h"
#include "math/constants.h"

namespace kosc {
namespace {

constexpr uint32_t LANES = 8; // values computed side by side, so that the compiler fills its registers

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
    const double* symbol; // null: nothing is sent there
    double step;          // phase between two subcarriers
    kom_complex factor;   // of the first subcarrier, with mixing and fade
};

place find_place(const soundcomm_paras_t& paras, const baseband& b, const double* sent, const frame_clock& clock,
                 uint32_t m)
{
    const ofdm_cfg& ofdm = paras.cfg.ofdm_cfg;
    const double length = static_cast<double>(ofdm.symbol_len) + ofdm.cp_len;
    const double received = static_cast<double>(m) * b.decimation;
    const double time = clock.sent_time(received);
    const double index = std::floor(time / length);
    if (!(index >= 0 && index < paras.frame.symbols)) {
        return {nullptr, 0.0, {0.0, 0.0}};
    }
    const double u = time - index * length;
    const double fade = fade_at(paras, u, length);
    const double step = 2 * PI * (u - ofdm.cp_len) / ofdm.symbol_len;
    const double phase = step * ofdm.sc_start_idx - std::fmod(b.middle * received, 2 * PI);
    return {sent + size_t{2} * ofdm.sc_num * static_cast<size_t>(index),
            step,
            {fade * std::cos(phase), fade * std::sin(phase)}};
}

// Sums the subcarriers of some neighbouring values by Horner's rule, sum over k of symbol[k] * exp(i*k*step).
void sum_subcarriers(const place* places, uint32_t sc_num, double* out)
{
    double re[LANES] = {};
    double im[LANES] = {};
    double turn_re[LANES];
    double turn_im[LANES];
    for (uint32_t j = 0; j < LANES; ++j) {
        turn_re[j] = std::cos(places[j].step);
        turn_im[j] = std::sin(places[j].step);
    }
    for (uint32_t k = sc_num; k-- > 0;) {
        double add_re[LANES];
        double add_im[LANES];
        for (uint32_t j = 0; j < LANES; ++j) {
            add_re[j] = places[j].symbol != nullptr ? places[j].symbol[2 * k] : 0.0;
            add_im[j] = places[j].symbol != nullptr ? places[j].symbol[2 * k + 1] : 0.0;
        }
        for (uint32_t j = 0; j < LANES; ++j) {
            const double next = re[j] * turn_re[j] - im[j] * turn_im[j] + add_re[j];
            im[j] = re[j] * turn_im[j] + im[j] * turn_re[j] + add_im[j];
            re[j] = next;
        }
    }
    for (uint32_t j = 0; j < LANES; ++j) {
        store(out, j, kom_complex{re[j], im[j]} * places[j].factor);
    }
}

} // namespace

void resend_frame(const soundcomm_paras_t& paras, const baseband& b, const double* sent, const frame_clock& clock,
                  double* out)
{
    for (uint32_t m = 0; m < b.frame_len; m += LANES) {
        place places[LANES] = {};
        for (uint32_t j = 0; j < std::min(LANES, b.frame_len - m); ++j) {
            places[j] = find_place(paras, b, sent, clock, m + j);
        }
        double values[2 * LANES];
        sum_subcarriers(places, paras.cfg.ofdm_cfg.sc_num, values);
        std::copy_n(values, size_t{2} * std::min(LANES, b.frame_len - m), out + size_t{2} * m);
    }
}

} // namespace kosc
