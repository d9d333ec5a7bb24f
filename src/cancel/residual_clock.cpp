#include "cancel/residual_clock.h"

#include <algorithm>
#include <cmath>

#include "config/frame_symbols.h"
#include "math/complex_ops.h"
#include "math/simd.h"

namespace kosc {
namespace {

constexpr uint32_t FIRST_DELAY = LEAD - 8; // of those that are correlated
constexpr int ROUNDS = 3;                  // of joint channel and phases

kom_complex conj(kom_complex z) { return {z.re, -z.im}; }

// phase(i) = constant + slope*t + curve*t^2, t symbols from the frame's middle.
struct parabola {
    double constant;
    double slope;
    double curve;
};

// Correlates each symbol as it was sent with what was received at every delay.
void measure_symbols(uint32_t symbols, const baseband& b, const double* resent, const double* received,
                     clock_scratch* scratch)
{
    for (uint32_t i = 0; i < symbols; ++i) {
        for (uint32_t d = 0; d < NEAR_DELAYS; ++d) {
            simd direct = {};  // re*re, im*im
            simd crossed = {}; // im*re, re*im
            const double* const y = received + size_t{2} * (size_t{i} * b.symbol_len + FIRST_DELAY + d);
            const double* const s = resent + size_t{2} * i * b.symbol_len;
            for (uint32_t m = 0; m < b.symbol_len; ++m) {
                const simd value = load_simd(s + size_t{2} * m);
                const simd heard = load_simd(y + size_t{2} * m);
                direct = direct + heard * value;
                crossed = crossed + swap_lanes(heard) * value;
            }
            store(scratch->channel[i], d, {direct[0] + direct[1], crossed[0] - crossed[1]});
        }
    }
}

kom_complex inner_product(const double* a, const double* b)
{
    kom_complex sum = {0.0, 0.0};
    for (uint32_t d = 0; d < NEAR_DELAYS; ++d) {
        sum = sum + load(a, d) * conj(load(b, d));
    }
    return sum;
}

// How far the phase moves from a symbol to the next, by all neighbouring data symbols: arg(sum of <c(i + 1), c(i)>).
// Source: Lank, Reed and Pollon 1973, "A semicoherent detection and Doppler estimation statistic".
double mean_step(const soundcomm_paras_t& paras, const clock_scratch& scratch)
{
    kom_complex sum = {0.0, 0.0};
    for (uint32_t i = 0; i + 1 < paras.frame.symbols; ++i) {
        if (!frame_symbol_at(paras, i).is_pilot && !frame_symbol_at(paras, i + 1).is_pilot) {
            sum = sum + inner_product(scratch.channel[i + 1], scratch.channel[i]);
        }
    }
    return std::atan2(sum.im, sum.re);
}

// Sums of powers of t, and of those with the phases: the normal equations of the parabola, solved by Cramer's rule.
struct normal_equations {
    double power[5];
    double phase[3];

    void add(double t, double value)
    {
        double p = 1.0;
        for (int k = 0; k < 5; ++k) {
            power[k] += p;
            if (k < 3) {
                phase[k] += p * value;
            }
            p *= t;
        }
    }
    static double determinant(const double (&c)[3][3])
    {
        return c[0][0] * (c[1][1] * c[2][2] - c[2][1] * c[1][2]) - c[1][0] * (c[0][1] * c[2][2] - c[2][1] * c[0][2]) +
               c[2][0] * (c[0][1] * c[1][2] - c[1][1] * c[0][2]);
    }
    double solve_for(int unknown) const // columns are the unknowns'
    {
        double c[3][3];
        double whole[3][3];
        for (int column = 0; column < 3; ++column) {
            for (int row = 0; row < 3; ++row) {
                whole[column][row] = power[row + column];
                c[column][row] = column == unknown ? phase[row] : power[row + column];
            }
        }
        const double divisor = determinant(whole);
        return divisor != 0.0 ? determinant(c) / divisor : 0.0;
    }
};

// Fits the phases of the data symbols against the joint channel, which is summed with the phases of the round before.
parabola fit_phases(const soundcomm_paras_t& paras, clock_scratch* scratch)
{
    const uint32_t symbols = paras.frame.symbols;
    const double middle = (symbols - 1) / 2.0;
    std::fill_n(scratch->joint, 2 * NEAR_DELAYS, 0.0);
    for (uint32_t i = 0; i < symbols; ++i) {
        const kom_complex back = {std::cos(scratch->phases[i]), -std::sin(scratch->phases[i])};
        for (uint32_t d = 0; d < NEAR_DELAYS && !frame_symbol_at(paras, i).is_pilot; ++d) {
            store(scratch->joint, d, load(scratch->joint, d) + load(scratch->channel[i], d) * back);
        }
    }
    normal_equations equations = {};
    for (uint32_t i = 0; i < symbols; ++i) {
        if (!frame_symbol_at(paras, i).is_pilot) {
            const kom_complex back = {std::cos(scratch->phases[i]), -std::sin(scratch->phases[i])};
            const kom_complex left = inner_product(scratch->channel[i], scratch->joint) * back;
            equations.add(i - middle, std::atan2(left.im, left.re) + scratch->phases[i]);
        }
    }
    return {equations.solve_for(0), equations.solve_for(1), equations.solve_for(2)};
}

} // namespace

// A clock that is wrong by a small rate turns the band's middle by rate * middle a sample; that is what phases show
// first, long before the symbols' times do. With t in symbols, of `symbol` samples each, phase(t) = constant +
// slope*t + curve*t^2 says that the rate is wrong by (slope + 2*curve*t) / (middle*symbol), and its change by
// 2*curve / (middle*symbol^2).
double refine_clock(const soundcomm_paras_t& paras, const baseband& b, const double* resent, const double* received,
                    clock_scratch* scratch, frame_clock* clock)
{
    const uint32_t symbols = paras.frame.symbols;
    const double middle = (symbols - 1) / 2.0;
    const double symbol = static_cast<double>(b.symbol_len) * b.decimation;
    measure_symbols(symbols, b, resent, received, scratch);
    parabola fit = {0.0, mean_step(paras, *scratch), 0.0};
    for (int round = 0; round < ROUNDS; ++round) {
        for (uint32_t i = 0; i < symbols; ++i) {
            const double t = i - middle;
            scratch->phases[i] = fit.constant + (fit.slope + fit.curve * t) * t;
        }
        fit = fit_phases(paras, scratch);
    }
    const double anchor = (clock->received_anchor - paras.frame.frame_length / 2.0) / symbol;
    clock->rate += (fit.slope + 2 * fit.curve * anchor) / (b.middle * symbol);
    clock->rate_change += 2 * fit.curve / (b.middle * symbol * symbol);
    return std::fabs(fit.slope) * symbols / 2.0;
}

} // namespace kosc
