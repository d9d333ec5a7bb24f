#include "cancel/left_over.h"

#include <algorithm>
#include <cmath>

#include "dsp/goertzel.h"
#include "math/complex_ops.h"
#include "math/constants.h"
#include "math/fft_bins.h"

namespace kosc {
namespace {

constexpr double FILTER_GUARD = 5.0;    // spacings that the receiver's filter passes beside the subcarriers
constexpr double MORE_THAN_NOISE = 2.0; // times the floor: what is left in one symbol scatters that much
constexpr double ROOM_SHARE = 0.2;      // of the frame's power, that a room leaves at most
constexpr double ROOM_SPREAD = 4.0;     // from symbol to symbol
constexpr double LEAST_SHARE = 0.003;   // of the frame's power: quieter frames below it would not decode

// A rate of the clock moves the subcarriers off the transform's grid, by `offset` spacings; one then leaks into the bin
// d spacings on as offset / d of itself. To the first order, takes that out of `values`, into `out`.
void take_leakage_out(double offset, const double* values, uint32_t sc_num, double* out)
{
    std::copy_n(values, size_t{2} * sc_num, out);
    for (uint32_t d = 1; d < sc_num; ++d) {
        const double share = offset / d;
        for (uint32_t k = 2 * d; k < 2 * sc_num; ++k) {
            out[k - 2 * d] -= share * values[k];
            out[k] += share * values[k - 2 * d];
        }
    }
}

// The channel that symbol `i` went through: received times conj(sent), which has unit power on every subcarrier.
bool measure_symbol(const soundcomm_paras_t& paras, const double* samples, const double* sent, const frame_clock& clock,
                    uint32_t i, double* spare, double* out)
{
    const ofdm_cfg& ofdm = paras.cfg.ofdm_cfg;
    const double half = (ofdm.symbol_len - 1) / 2.0;
    const double unit = 2 * PI / ofdm.symbol_len;
    const double start = window_start(paras.cfg, i);
    const double last = static_cast<double>(paras.frame.frame_length) - ofdm.symbol_len;
    const double first = std::clamp(std::round(clock.received_time(start + half) - half), 0.0, last);
    if (!fft_real_bins(samples + static_cast<size_t>(first), ofdm.symbol_len, ofdm.sc_start_idx, ofdm.sc_num, spare)) {
        return false;
    }
    const double middle = ofdm.sc_start_idx + (ofdm.sc_num - 1) / 2.0;
    take_leakage_out(clock.rate_at(first + half) * middle, spare, ofdm.sc_num, out);
    const double lag = unit * (start - (clock.sent_time(first + half) - half));
    rotate(lag * ofdm.sc_start_idx, lag, ofdm.sc_num, out);
    for (uint32_t k = 0; k < ofdm.sc_num; ++k) {
        const kom_complex known = load(sent, k);
        store(out, k, load(out, k) * kom_complex{known.re, -known.im});
    }
    return true;
}

kom_complex inner_product(const double* a, const double* b, uint32_t count)
{
    kom_complex sum = {0.0, 0.0};
    for (uint32_t k = 0; k < count; ++k) {
        const kom_complex other = load(b, k);
        sum = sum + load(a, k) * kom_complex{other.re, -other.im};
    }
    return sum;
}

void add_turned(const double* from, kom_complex by, uint32_t count, double* to)
{
    const double length = std::hypot(by.re, by.im);
    const kom_complex turn = length > 0.0 ? kom_complex{by.re / length, -by.im / length} : kom_complex{1.0, 0.0};
    for (uint32_t k = 0; k < count; ++k) {
        store(to, k, load(to, k) + load(from, k) * turn);
    }
}

// How far the phase moves from a symbol to the next.
double mean_step(const double* rows, uint32_t symbols, uint32_t sc_num)
{
    kom_complex sum = {0.0, 0.0};
    for (uint32_t i = 0; i + 1 < symbols; ++i) {
        const double* const own = rows + size_t{2} * sc_num * i;
        sum = sum + inner_product(own + size_t{2} * sc_num, own, sc_num);
    }
    return std::atan2(sum.im, sum.re);
}

// What is left of a symbol's measurement c against the mean response h of all, turned to fit best, is
// |c|^2 - |<c, h>|^2 / |h|^2.
left_over compare_symbols(const soundcomm_paras_t& paras, const double* samples, const double* sent,
                          const frame_clock& clock, double floor, double* rows)
{
    const ofdm_cfg& ofdm = paras.cfg.ofdm_cfg;
    const uint32_t sc_num = ofdm.sc_num;
    const size_t row = size_t{2} * sc_num;
    double* const joint = rows + row * paras.frame.symbols;
    std::fill_n(joint, row, 0.0);
    for (uint32_t i = 0; i < paras.frame.symbols; ++i) {
        double* const own = rows + row * i;
        if (!measure_symbol(paras, samples, sent + row * i, clock, i, joint + row, own)) {
            return left_over::MORE;
        }
        add_turned(own, inner_product(own, joint, sc_num), sc_num, joint);
    }
    const double joint_energy = inner_product(joint, joint, sc_num).re;
    // Noise of mean power `floor` has symbol_len^2 * floor of energy in the transform (Parseval), in the bins that the
    // filter passes and their mirror.
    const double noise = floor * ofdm.symbol_len * ofdm.symbol_len / (2.0 * (sc_num + FILTER_GUARD));
    left_over found = left_over::NOTHING;
    double least = INFINITY; // of all symbols but the first, before which nothing was sent
    double most = 0.0;
    for (uint32_t i = 0; i < paras.frame.symbols; ++i) {
        const double* const own = rows + row * i;
        const double all = inner_product(own, own, sc_num).re;
        const kom_complex common = inner_product(own, joint, sc_num);
        const double explained =
            joint_energy > 0.0 ? (common.re * common.re + common.im * common.im) / joint_energy : 0.0;
        const double left = all - explained;
        most = std::max(most, left);
        least = i > 0 ? std::min(least, left) : least;
        if (left > ROOM_SHARE * explained) {
            return left_over::MORE;
        }
        if (left > MORE_THAN_NOISE * noise * sc_num + LEAST_SHARE * explained) {
            found = left_over::AS_OF_A_ROOM;
        }
    }
    return found == left_over::AS_OF_A_ROOM && most > ROOM_SPREAD * least ? left_over::MORE : found;
}

} // namespace

// A clock that is wrong by a small rate shows first in the phase, which it turns by rate * middle a sample.
left_over find_left_over(const soundcomm_paras_t& paras, const double* samples, const double* sent, double floor,
                         double* scratch, frame_clock* clock)
{
    const left_over found = compare_symbols(paras, samples, sent, *clock, floor, scratch);
    if (found == left_over::NOTHING) {
        return found;
    }
    const ofdm_cfg& ofdm = paras.cfg.ofdm_cfg;
    const double middle = 2 * PI * (ofdm.sc_start_idx + (ofdm.sc_num - 1) / 2.0) / ofdm.symbol_len;
    const double step = mean_step(scratch, paras.frame.symbols, ofdm.sc_num);
    clock->rate += step / (middle * (ofdm.symbol_len + ofdm.cp_len));
    return compare_symbols(paras, samples, sent, *clock, floor, scratch);
}

} // namespace kosc
