#include "cancel/baseband.h"

#include <algorithm>
#include <cmath>

#include "dsp/goertzel.h"
#include "math/complex_ops.h"
#include "math/constants.h"
#include "math/simd.h"

namespace kosc {
namespace {

// Modified Bessel function of the first kind, of order 0.
double bessel(double x)
{
    double term = 1.0;
    double sum = 1.0;
    for (int k = 1; term > sum * 1e-15; ++k) {
        term *= x / (2 * k) * (x / (2 * k));
        sum += term;
    }
    return sum;
}

// A low-pass with its cut-off one width of the band from the middle, so that what folds back stays outside the band.
// Source of the window: Kaiser 1974, "Nonrecursive digital filter design using the I0-sinh window function".
void design(const ofdm_cfg& ofdm, double middle, double beta, uint32_t reach, low_pass* filter)
{
    filter->reach = reach;
    double sum = 0.0;
    for (uint32_t l = 0; l <= 2 * reach; ++l) {
        const double t = static_cast<double>(l) - reach;
        const double x = PI * 2.0 * ofdm.sc_num / ofdm.symbol_len * t;
        const double inside = 1.0 - t / (reach + 1) * (t / (reach + 1));
        const double low = (t == 0.0 ? 1.0 : std::sin(x) / x) * bessel(beta * std::sqrt(inside));
        store(filter->taps, l, {low * std::cos(middle * t), -low * std::sin(middle * t)});
        sum += low;
    }
    for (uint32_t l = 0; l < 2 * (2 * reach + 1); ++l) {
        filter->taps[l] /= sum;
    }
}

// The phase of the carrier that the middle of the band is mixed with, at the first value and from value to value.
void carrier(const baseband& b, uint32_t count, double sign, double* phasors)
{
    const double step = sign * std::fmod(b.middle * b.decimation, 2 * PI);
    fill_phasors(-step * LEAD, step, count, phasors);
}

double sum_lanes(simd v) { return v[0] + v[1]; }

} // namespace

bool init_baseband(const soundcomm_paras_t& paras, baseband* b)
{
    const ofdm_cfg& ofdm = paras.cfg.ofdm_cfg;
    const uint32_t length = ofdm.symbol_len + ofdm.cp_len;
    b->decimation = 1;
    while (uint64_t{4} * b->decimation * ofdm.sc_num <= ofdm.symbol_len) {
        b->decimation *= 2;
    }
    b->frame_len = paras.frame.frame_length / b->decimation;
    b->symbol_len = length / b->decimation;
    b->middle = 2 * PI * (ofdm.sc_start_idx + (ofdm.sc_num - 1) / 2.0) / ofdm.symbol_len;
    design(ofdm, b->middle, 8.0, low_pass::MOST_REACH, &b->sharp);
    design(ofdm, b->middle, 3.4, low_pass::MOST_REACH / 4, &b->brief);
    return length % b->decimation == 0 && b->frame_len + LEAD + ofdm.cp_len / b->decimation <= BLOCK_LEN;
}

// out(m) = sum over n of low(n - m*D) * x(n) * exp(-i*w*n), with n and m counted from the frame's start, D the
// decimation and w the band's middle: the taps hold low(l)*exp(-i*w*l), the phasors exp(-i*w*D*m). Source: Crochiere
// and Rabiner 1983, "Multirate digital signal processing".
void mix_down(const baseband& b, const low_pass& filter, const frame_surroundings& samples, uint32_t count,
              double* phasors, double* out, double* present)
{
    const int64_t reach = filter.reach;
    const size_t size = 2 * size_t{filter.reach} + 1;
    carrier(b, count, -1.0, phasors);
    for (uint32_t m = 0; m < count; ++m) {
        const int64_t middle = (static_cast<int64_t>(m) - LEAD) * b.decimation;
        const bool there = middle - reach >= samples.first && middle + reach < samples.end;
        present[m] = there ? 1.0 : 0.0;
        simd sum0 = {}, sum1 = {}, sum2 = {}, sum3 = {}; // so that none waits for the one before
        if (there) {
            const double* const x = samples.from_start + (middle - reach);
            sum0 = load_simd(filter.taps) * broadcast(x[0]);
            for (size_t l = 1; l < size; l += 4) {
                const double* const taps = filter.taps + 2 * l;
                sum0 = sum0 + load_simd(taps) * broadcast(x[l]);
                sum1 = sum1 + load_simd(taps + 2) * broadcast(x[l + 1]);
                sum2 = sum2 + load_simd(taps + 4) * broadcast(x[l + 2]);
                sum3 = sum3 + load_simd(taps + 6) * broadcast(x[l + 3]);
            }
        }
        const simd sum = (sum0 + sum1) + (sum2 + sum3);
        store(out, m, kom_complex{sum[0], sum[1]} * load(phasors, m));
    }
}

// x(n) = 2*D * Re(sum over m of values(m) * low(n - m*D) * exp(i*w*n)).
void mix_up(const baseband& b, uint32_t count, double* phasors, double* values, double* out)
{
    carrier(b, count, 1.0, phasors);
    for (uint32_t m = 0; m < count; ++m) {
        store(values, m, load(values, m) * load(phasors, m));
    }
    const int64_t step = b.decimation;
    const int64_t reach = b.sharp.reach;
    const double gain = 2.0 * b.decimation; // both halves of the spectrum, and the rate
    for (int64_t n = 0; n < count * step; ++n) {
        // Re(value * conj(tap)): the taps are mixed down, their conjugates up.
        const int64_t low = n > reach ? (n - reach + step - 1) / step : 0;
        const int64_t high = std::min<int64_t>(count - 1, (n + reach) / step);
        simd sum = {};
        for (int64_t m = low; m <= high; ++m) {
            sum = sum + load_simd(values + 2 * m) * load_simd(b.sharp.taps + 2 * (n - m * step + reach));
        }
        out[n] = gain * sum_lanes(sum);
    }
}

} // namespace kosc
