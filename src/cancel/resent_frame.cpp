#include "cancel/resent_frame.h"

#include <algorithm>
#include <cmath>

#include "dsp/goertzel.h"
#include "kosc/fft.h"
#include "math/complex_ops.h"
#include "math/constants.h"

namespace kosc {
namespace {

constexpr uint32_t MOST_VALUES = BLOCK_LEN / 4; // of a symbol: a frame has four at least

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

// A symbol's values, from value `first` on. With u the time since its prefix's end, in samples, value m is the sum over
// k of S(k) * exp(2*pi*i*(first_subcarrier + k)*u/N), mixed down, and u = u0 + decimation * (m - middle) + late. All of
// it but `late`, by which the clock's rate moves the symbol's ends, comes from one inverse transform;
// exp(2*pi*i*k*late/N) is taken as its value for the mean k times a straight line in k, for which there is another. At
// 1000 ppm that errs by -56 dB.
class symbol_values {
public:
    symbol_values(const ofdm_cfg& ofdm, const baseband& band, const frame_clock& time, double begin, uint32_t first,
                  const double* symbol)
        : b{band}, clock{time}, start{begin + ofdm.cp_len}, middle{first + band.symbol_len / 2},
          u0{clock.sent_time(at_rate(middle)) - start}, unit{2 * PI / ofdm.symbol_len}, size{ofdm.symbol_len /
                                                                                             b.decimation}
    {
        std::fill_n(sums, 2 * size, 0.0);
        std::fill_n(slopes, 2 * size, 0.0);
        std::copy_n(symbol, 2 * ofdm.sc_num, sums);
        rotate(0.0, unit * u0, ofdm.sc_num, sums);
        for (uint32_t k = 0; k < ofdm.sc_num; ++k) {
            const double from_mean = unit * (k - (ofdm.sc_num - 1) / 2.0);
            store(slopes, k, kom_complex{0.0, from_mean} * load(sums, k));
        }
        kom_fft_complex_radix2_inverse(sums, 1, size);
        kom_fft_complex_radix2_inverse(slopes, 1, size);
        double phase[3]; // it is a parabola, like the clock's time
        for (uint32_t j = 0; j < 3; ++j) {
            const uint32_t m = first + j;
            phase[j] = unit * ofdm.sc_start_idx * (u0 + from_middle(m)) + b.middle * (late(m) - at_rate(m));
        }
        phasor = {size * std::cos(phase[0]), size * std::sin(phase[0])};
        const double step = phase[1] - phase[0];
        turn = {std::cos(step), std::sin(step)};
        const double more = phase[2] - phase[1] - step;
        bend = {std::cos(more), std::sin(more)};
    }
    // Value m, each after the one before.
    kom_complex next(uint32_t m)
    {
        const uint32_t at = (m - middle) % size;
        const kom_complex slope = load(slopes, at);
        const double by = late(m);
        const kom_complex value = (load(sums, at) + kom_complex{by * slope.re, by * slope.im}) * phasor;
        phasor = phasor * turn;
        turn = turn * bend;
        return value;
    }

private:
    double at_rate(uint32_t m) const { return static_cast<double>(m) * b.decimation; }
    double from_middle(uint32_t m) const { return at_rate(m) - at_rate(middle); }
    double late(uint32_t m) const { return clock.sent_time(at_rate(m)) - start - u0 - from_middle(m); }
    const baseband& b;
    const frame_clock& clock;
    double start; // of its body, as sent
    uint32_t middle;
    double u0;
    double unit;
    uint32_t size;
    kom_complex phasor;
    kom_complex turn;
    kom_complex bend;
    double sums[2 * MOST_VALUES];
    double slopes[2 * MOST_VALUES]; // the line's slope in `late`
};

} // namespace

void resend_frame(const soundcomm_paras_t& paras, const baseband& b, const double* sent, const frame_clock& clock,
                  double* out)
{
    const ofdm_cfg& ofdm = paras.cfg.ofdm_cfg;
    const double length = static_cast<double>(ofdm.symbol_len) + ofdm.cp_len;
    const auto time = [&](uint32_t m) { return clock.sent_time(static_cast<double>(m) * b.decimation); };
    uint32_t m = 0;
    while (m < b.frame_len && !(time(m) >= 0.0)) {
        store(out, m++, {0.0, 0.0});
    }
    for (uint32_t i = 0; i < paras.frame.symbols; ++i) {
        const double begin = i * length;
        symbol_values values{ofdm, b, clock, begin, m, sent + size_t{2} * ofdm.sc_num * i};
        for (; m < b.frame_len && time(m) < begin + length; ++m) {
            const double fade = fade_at(paras, time(m) - begin, length);
            const kom_complex value = values.next(m);
            store(out, m, {fade * value.re, fade * value.im});
        }
    }
    std::fill(out + size_t{2} * m, out + size_t{2} * b.frame_len, 0.0);
}

} // namespace kosc
