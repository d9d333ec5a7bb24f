#include "cancel/left_over.h"

#include <algorithm>
#include <cmath>

#include "dsp/goertzel.h"
#include "math/complex_ops.h"
#include "math/constants.h"
#include "math/fft_bins.h"
#include "math/simd.h"

namespace kosc {
namespace {

constexpr double FILTER_GUARD = 5.0;    // spacings that the receiver's filter passes beside the subcarriers
constexpr double MORE_THAN_NOISE = 2.0; // times the floor: what is left in one symbol scatters that much
constexpr double ROOM_SHARE = 0.3;      // of the frame's power, that a room leaves at most
constexpr double ROOM_SPREAD = 4.0;     // from symbol to symbol
constexpr double LEAST_SHARE = 0.003;   // of the frame's power: quieter frames below it would not decode
constexpr uint32_t LEAKAGE_REACH = 16;  // spacings; at 100 ppm 0.02 % of the frame leak farther

// A rate of the clock moves the subcarriers off the transform's grid, by `offset` spacings; one then leaks into the bin
// d spacings on as offset / d of itself. To the first order, takes that out of `values`, into `out`.
void take_leakage_out(double offset, const double* values, uint32_t sc_num, double* out)
{
    std::copy_n(values, size_t{2} * sc_num, out);
    for (uint32_t d = 1; d <= std::min(LEAKAGE_REACH, sc_num - 1) && offset != 0.0; ++d) {
        const simd share = broadcast(offset / d);
        for (uint32_t k = 2 * d; k < 2 * sc_num; k += 2) {
            store_simd(out + k - 2 * d, load_simd(out + k - 2 * d) - share * load_simd(values + k));
            store_simd(out + k, load_simd(out + k) + share * load_simd(values + k - 2 * d));
        }
    }
}

// Where symbol `i` is transformed.
double window_at(const soundcomm_paras_t& paras, const frame_clock& clock, uint32_t i)
{
    const ofdm_cfg& ofdm = paras.cfg.ofdm_cfg;
    const double half = (ofdm.symbol_len - 1) / 2.0;
    const double last = static_cast<double>(paras.frame.frame_length) - ofdm.symbol_len;
    return std::clamp(std::round(clock.received_time(window_start(paras.cfg, i) + half) - half), 0.0, last);
}

// The channel that symbol `i`, whose bins were taken from sample `first` on, went through by a clock: received times
// conj(sent), which has unit power on every subcarrier.
void find_channel(const soundcomm_paras_t& paras, const double* bins, double first, const double* sent,
                  const frame_clock& clock, uint32_t i, double* out)
{
    const ofdm_cfg& ofdm = paras.cfg.ofdm_cfg;
    const double half = (ofdm.symbol_len - 1) / 2.0;
    const double unit = 2 * PI / ofdm.symbol_len;
    const double middle = ofdm.sc_start_idx + (ofdm.sc_num - 1) / 2.0;
    take_leakage_out(clock.rate_at(first + half) * middle, bins, ofdm.sc_num, out);
    const double lag = unit * (window_start(paras.cfg, i) - (clock.sent_time(first + half) - half));
    rotate(lag * ofdm.sc_start_idx, lag, ofdm.sc_num, out);
    const double* const known = sent + size_t{2} * ofdm.sc_num * i;
    for (uint32_t k = 0; k < ofdm.sc_num; ++k) {
        const kom_complex conj = {known[2 * k], -known[2 * k + 1]};
        store(out, k, load(out, k) * conj);
    }
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

// Transforms all symbols into `rows`, and says how far the channel's phase moves by `clock` from a symbol to the next.
// Two rows behind the symbols' are scratch memory. False where the transform is none that the tables serve.
bool measure_symbols(const soundcomm_paras_t& paras, const double* samples, const double* sent,
                     const frame_clock& clock, double* rows, double* step)
{
    const ofdm_cfg& ofdm = paras.cfg.ofdm_cfg;
    const size_t row = size_t{2} * ofdm.sc_num;
    double* before = rows + row * paras.frame.symbols;
    double* channel = before + row;
    kom_complex sum = {0.0, 0.0};
    for (uint32_t i = 0; i < paras.frame.symbols; ++i) {
        const double first = window_at(paras, clock, i);
        double* const bins = rows + row * i;
        if (!fft_real_bins(samples + static_cast<size_t>(first), ofdm.symbol_len, ofdm.sc_start_idx, ofdm.sc_num,
                           bins)) {
            return false;
        }
        find_channel(paras, bins, first, sent, clock, i, channel);
        if (i > 0) {
            sum = sum + inner_product(channel, before, ofdm.sc_num);
        }
        std::swap(before, channel);
    }
    *step = std::atan2(sum.im, sum.re);
    return true;
}

// What is left of a symbol's measurement c against the mean response h of all, turned to fit best, is
// |c|^2 - |<c, h>|^2 / |h|^2. `rows`, transformed by the clock `before`, become the channels. Unless more is left than
// of a room, `slope` receives that of the line through the phases of all <c, h>.
left_over compare_symbols(const soundcomm_paras_t& paras, const double* sent, const frame_clock& before,
                          const frame_clock& clock, double floor, double* rows, double* slope)
{
    const ofdm_cfg& ofdm = paras.cfg.ofdm_cfg;
    const uint32_t sc_num = ofdm.sc_num;
    const size_t row = size_t{2} * sc_num;
    double* const joint = rows + row * paras.frame.symbols;
    double* const bins = joint + row;
    std::fill_n(joint, row, 0.0);
    for (uint32_t i = 0; i < paras.frame.symbols; ++i) {
        double* const own = rows + row * i;
        std::copy_n(own, row, bins);
        find_channel(paras, bins, window_at(paras, before, i), sent, clock, i, own);
        add_turned(own, inner_product(own, joint, sc_num), sc_num, joint);
    }
    const double joint_energy = inner_product(joint, joint, sc_num).re;
    // Noise of mean power `floor` has symbol_len^2 * floor of energy in the transform (Parseval), in the bins that the
    // filter passes and their mirror.
    const double noise = floor * ofdm.symbol_len * ofdm.symbol_len / (2.0 * (sc_num + FILTER_GUARD));
    left_over found = left_over::NOTHING;
    double least = INFINITY; // of all symbols but the first, before which nothing was sent
    double most = 0.0;
    double turned = 0.0; // sum of phases, each times its place in symbols from the middle
    double squares = 0.0;
    for (uint32_t i = 0; i < paras.frame.symbols; ++i) {
        const double* const own = rows + row * i;
        const double all = inner_product(own, own, sc_num).re;
        const kom_complex common = inner_product(own, joint, sc_num);
        const double explained =
            joint_energy > 0.0 ? (common.re * common.re + common.im * common.im) / joint_energy : 0.0;
        const double left = all - explained;
        const double place = i - (paras.frame.symbols - 1) / 2.0;
        turned += place * std::atan2(common.im, common.re);
        squares += place * place;
        most = std::max(most, left);
        least = i > 0 ? std::min(least, left) : least;
        if (left > MORE_THAN_NOISE * noise * sc_num + ROOM_SHARE * explained) {
            return left_over::MORE;
        }
        if (left > MORE_THAN_NOISE * noise * sc_num + LEAST_SHARE * explained) {
            found = left_over::AS_OF_A_ROOM;
        }
    }
    *slope = turned / squares;
    return found == left_over::AS_OF_A_ROOM && most > ROOM_SPREAD * least ? left_over::MORE : found;
}

} // namespace

// A clock that is wrong by a small rate shows first in the phase, which it turns by rate * middle a sample.
left_over find_left_over(const soundcomm_paras_t& paras, const double* samples, const double* sent, double floor,
                         double* scratch, frame_clock* clock)
{
    const frame_clock before = *clock;
    double step = 0.0;
    if (!measure_symbols(paras, samples, sent, before, scratch, &step)) {
        return left_over::MORE;
    }
    const ofdm_cfg& ofdm = paras.cfg.ofdm_cfg;
    const double middle = 2 * PI * (ofdm.sc_start_idx + (ofdm.sc_num - 1) / 2.0) / ofdm.symbol_len;
    const double per_symbol = 1.0 / (middle * (ofdm.symbol_len + ofdm.cp_len));
    clock->rate += step * per_symbol;
    double slope = 0.0;
    const left_over found = compare_symbols(paras, sent, before, *clock, floor, scratch, &slope);
    clock->rate += slope * per_symbol;
    return found;
}

} // namespace kosc
