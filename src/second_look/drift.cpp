#include "kosc/drift.h"

#include <algorithm>
#include <cmath>

#include "config/frame_symbols.h"
#include "dsp/goertzel.h"
#include "math/complex_ops.h"
#include "math/constants.h"
#include "platform/owned.h"
#include "second_look/drift_near.h"
#include "second_look/frame_clock.h"

using namespace kosc;

namespace {

constexpr double PPM = 1e-6;
// Coarse rates: a mismatch of half a step costs the pilots of the built-in modem less than a tenth of a decibel.
constexpr double COARSE_STEP = 320 * PPM;
constexpr int COARSE_REACH = 15; // steps on either side
constexpr uint32_t COARSE_NUM = 2 * COARSE_REACH + 1;
// Fine rates: pilots turn against each other by less than a quarter radian a step.
constexpr double FINE_STEP = 40 * PPM;
constexpr int FINE_REACH = 105;
// Changes of rate: what a person who starts walking does within a frame.
constexpr double RATE_CHANGE_STEP = 500 * PPM / 11520;
constexpr int RATE_CHANGE_REACH = 3;
// Coherence that a change of rate costs, times its square in steps, since noise fits three parameters better than two:
// a Gaussian prior, for people rarely speed up by more than a few hundred ppm a frame.
constexpr double RATE_CHANGE_PENALTY = 0.0033;
// Two candidates closer than this are one.
constexpr double SAME_RATE = 200 * PPM;
constexpr double SAME_RATE_CHANGE = 1000 * PPM / 11520;
// Likewise of the distance from where a drift is expected, in coarse steps.
constexpr double NEAR_STEP = 320 * PPM;
constexpr double NEAR_PENALTY = 0.005;
// Coherence that is worth a correlation of 1 between prefixes and ends. At the lowest SNRs less would fit the
// likelihoods, at high ones nothing depends on it.
constexpr double PREFIX_WORTH = 0.3;
constexpr int REFINEMENTS = 4; // halvings of both steps
constexpr uint32_t BLOCK_LEN = 32;
constexpr uint32_t MIN_SYMBOL_LEN = 2 * BLOCK_LEN;

using search_ptr = owned<drift_search_t, drift_search_free>;

} // namespace

struct drift_search_t {
    const soundcomm_paras_t* paras;
    const channel_smoother_t* smoother;
    uint32_t block_num;   // blocks summed for a pilot: its window and a margin on either side
    uint32_t margin;      // blocks
    double* block_sums;   // owned; block_num rows of sc_num complex values, of one pilot
    double* response;     // owned; sc_num complex values: a pilot's subcarriers, then its channel
    double* block_steps;  // owned; sc_num phasors: how far each subcarrier turns within a block
    double* work;         // owned; 3 * sc_num doubles, for goertzel()
    double* middles;      // owned; [pilot][coarse rate] middle of the window used, in received samples
    double* coefficients; // owned; [pilot][coarse rate][rank] complex: the channel along the smoother's sequences
    double* energy;       // owned; [pilot][coarse rate] sum of the channel's powers
    double* sum;          // owned; rank complex values: the pilots' coefficients, joined
    uint32_t first_rate;  // coarse rates that were measured, besides 0; all of them unless the drift is roughly known
    uint32_t last_rate;
};

namespace {

double coarse_rate(uint32_t g) { return (static_cast<int>(g) - COARSE_REACH) * COARSE_STEP; }

// Radians a sample of a frequency in subcarrier spacings.
double omega(const drift_search_t& s, double subcarrier)
{
    return 2 * PI * subcarrier / s.paras->cfg.ofdm_cfg.symbol_len;
}

// Sums the samples of each block at the nominal frequencies, phases counting from the block's middle. Samples outside
// the frame count as silence.
void sum_blocks(const drift_search_t& s, const double* frame, int64_t first_sample)
{
    const ofdm_cfg& ofdm = s.paras->cfg.ofdm_cfg;
    for (uint32_t b = 0; b < s.block_num; ++b) {
        double block[BLOCK_LEN];
        for (uint32_t n = 0; n < BLOCK_LEN; ++n) {
            const int64_t at = first_sample + int64_t{b} * BLOCK_LEN + n;
            block[n] = at >= 0 && at < s.paras->frame.frame_length ? frame[at] : 0.0;
        }
        goertzel(block, BLOCK_LEN, omega(s, ofdm.sc_start_idx), omega(s, 1), ofdm.sc_num, s.work,
                 s.block_sums + size_t{2} * ofdm.sc_num * b);
    }
}

// response(k) = sum over b of B(first + b, k) * exp(-j*w(k)*(1 + rate)*BLOCK_LEN*(b - (blocks - 1)/2)), with the block
// sums B at the nominal frequencies w(k): phases count from the middle of those blocks. Horner's scheme, the last block
// first. Within a block the nominal frequency stands for the true one: at the highest rate its phase is wrong by 0.2
// radians at the block's ends, which costs less than a tenth of a decibel.
void join_blocks(const drift_search_t& s, uint32_t first, double rate)
{
    const ofdm_cfg& ofdm = s.paras->cfg.ofdm_cfg;
    const uint32_t blocks = ofdm.symbol_len / BLOCK_LEN;
    const double low = -omega(s, ofdm.sc_start_idx) * (1 + rate);
    const double step = -omega(s, 1) * (1 + rate);
    fill_phasors(low * BLOCK_LEN, step * BLOCK_LEN, ofdm.sc_num, s.block_steps);
    std::fill_n(s.response, size_t{2} * ofdm.sc_num, 0.0);
    for (uint32_t b = blocks; b-- > 0;) {
        const double* const sums = s.block_sums + size_t{2} * ofdm.sc_num * (first + b);
        for (uint32_t k = 0; k < ofdm.sc_num; ++k) {
            store(s.response, k, load(s.response, k) * load(s.block_steps, k) + load(sums, k));
        }
    }
    const double to_middle = -(blocks - 1.0) / 2 * BLOCK_LEN;
    rotate(low * to_middle, step * to_middle, ofdm.sc_num, s.response);
}

// Channel coefficients of pilot `p`, symbol `index` of the frame, at every coarse rate: received(k) * conj(sent(k))
// along the smoother's sequences, demodulated as transform_symbols() does, but from the blocks nearest to the window.
void measure_pilot(const drift_search_t& s, const double* frame, uint32_t p, uint32_t index)
{
    const ofdm_cfg& ofdm = s.paras->cfg.ofdm_cfg;
    const double* const sent = pilot_at(*s.paras, p).sequence->data;
    const double start = window_start(s.paras->cfg, index);
    const double half = (ofdm.symbol_len - 1) / 2.0;
    const auto first_sample = static_cast<int64_t>(start) - int64_t{s.margin} * BLOCK_LEN;
    sum_blocks(s, frame, first_sample);
    for (uint32_t g = 0; g < COARSE_NUM; ++g) {
        if ((g < s.first_rate || g > s.last_rate) && g != COARSE_REACH) {
            continue;
        }
        const frame_clock clock = make_clock(*s.paras, coarse_rate(g), 0.0);
        const double shift = clock.received_time(start + half) - (start + half);
        const double blocks = std::clamp(std::round(shift / BLOCK_LEN) + s.margin, 0.0, 2.0 * s.margin);
        join_blocks(s, static_cast<uint32_t>(blocks), clock.rate);
        const double middle = static_cast<double>(first_sample) + blocks * BLOCK_LEN + half;
        const double lag = start - clock.sent_time(middle);
        rotate(omega(s, ofdm.sc_start_idx) * lag, omega(s, 1) * lag, ofdm.sc_num, s.response);
        double energy = 0.0;
        for (uint32_t k = 0; k < ofdm.sc_num; ++k) {
            const kom_complex pilot = load(sent, k);
            const kom_complex h = load(s.response, k) * kom_complex{pilot.re, -pilot.im};
            store(s.response, k, h);
            energy += h.re * h.re + h.im * h.im;
        }
        const size_t entry = size_t{p} * COARSE_NUM + g;
        s.middles[entry] = middle;
        s.energy[entry] = energy;
        channel_smoother_analyse(s.smoother, s.response, s.coefficients + 2 * size_t{s.smoother->rank} * entry);
    }
}

// Share of the pilots' energy that adds up under a rate and its change, less the penalty of the change.
//
// With the channel coefficients c(p) of P pilots along the smoother's sequences, each rotated by the phase phi(p) that
// the clock gives it at the middle of the band, and the pilots' energies E(p), it is
//     |sum c(p)*exp(j*phi(p))|^2 / (P * sum E(p)):
// 1 for one noiseless channel within the prefix. Over the grid its maximum is the maximum-likelihood estimate, with
// white noise and the same channel at every pilot. Each pilot's coefficients are those of the nearest coarse rate.
double coherence(const drift_search_t& s, double rate, double rate_change)
{
    const uint32_t rank = s.smoother->rank;
    const uint32_t pilots = s.paras->frame.pilot_symbols;
    const ofdm_cfg& ofdm = s.paras->cfg.ofdm_cfg;
    const double middle_omega = omega(s, ofdm.sc_start_idx + (ofdm.sc_num - 1) / 2.0);
    const frame_clock clock = make_clock(*s.paras, rate, rate_change);
    std::fill_n(s.sum, size_t{2} * rank, 0.0);
    double energy = 0.0;
    for (uint32_t p = 0; p < pilots; ++p) {
        const size_t row = size_t{p} * COARSE_NUM;
        const double local = clock.rate_at(s.middles[row + COARSE_REACH]);
        const double nearest = std::round(local / COARSE_STEP) + COARSE_REACH;
        const auto g = static_cast<uint32_t>(
            std::clamp(nearest, static_cast<double>(s.first_rate), static_cast<double>(s.last_rate)));
        const double middle = s.middles[row + g];
        const frame_clock measured = make_clock(*s.paras, coarse_rate(g), 0.0);
        const double phase = middle_omega * (measured.sent_time(middle) - clock.sent_time(middle));
        const kom_complex rotation = {std::cos(phase), std::sin(phase)};
        const double* const c = s.coefficients + 2 * size_t{rank} * (row + g);
        for (uint32_t r = 0; r < rank; ++r) {
            store(s.sum, r, load(s.sum, r) + load(c, r) * rotation);
        }
        energy += s.energy[row + g];
    }
    double joined = 0.0;
    for (uint32_t r = 0; r < rank; ++r) {
        const kom_complex c = load(s.sum, r);
        joined += c.re * c.re + c.im * c.im;
    }
    const double change_steps = rate_change / RATE_CHANGE_STEP;
    return (energy > 0.0 ? joined / (energy * pilots) : 0.0) - RATE_CHANGE_PENALTY * change_steps * change_steps;
}

// The rate in the middle of the frame: its estimation error is uncorrelated with that of the rate's change.
double middle_rate(const drift_search_t& s, const drift_t& d)
{
    return make_clock(*s.paras, d.rate, d.rate_change).rate_at(s.paras->frame.frame_length / 2.0);
}

// The inverse of middle_rate(): rate = middle - rate_change * (frame_length/2 - anchor), with the anchor of `middle`,
// which lies by so little from that of the rate that less than 1 ppm comes of it.
drift_t with_middle_rate(const drift_search_t& s, double middle, double rate_change)
{
    const double distance =
        s.paras->frame.frame_length / 2.0 - make_clock(*s.paras, middle, rate_change).received_anchor;
    const double rate = middle - rate_change * distance;
    return {rate, rate_change, coherence(s, rate, rate_change)};
}

// Puts `d` into a list sorted by coherence, in which no two candidates are the same.
uint32_t insert(const drift_search_t& s, const drift_t& d, drift_t* found, uint32_t count, uint32_t max_found)
{
    uint32_t same = count;
    for (uint32_t i = 0; i < count; ++i) {
        if (std::fabs(middle_rate(s, found[i]) - middle_rate(s, d)) < SAME_RATE &&
            std::fabs(found[i].rate_change - d.rate_change) < SAME_RATE_CHANGE) {
            same = i;
            break;
        }
    }
    if (same < count && found[same].coherence >= d.coherence) {
        return count;
    }
    uint32_t last = same;
    if (same == count) {
        if (count < max_found) {
            ++count;
        } else if (found[count - 1].coherence >= d.coherence) {
            return count;
        }
        last = count - 1;
    }
    for (; last > 0 && found[last - 1].coherence < d.coherence; --last) {
        found[last] = found[last - 1];
    }
    found[last] = d;
    return count;
}

// Coordinate ascent: climbs to the maximum next to `d` along one axis after the other, with steps that halve.
void refine(const drift_search_t& s, drift_t* d)
{
    double rate_step = FINE_STEP / 2;
    double change_step = RATE_CHANGE_STEP / 2;
    for (int i = 0; i < REFINEMENTS; ++i, rate_step /= 2, change_step /= 2) {
        for (int way = -1; way <= 1; way += 2) {
            const drift_t moved = with_middle_rate(s, middle_rate(s, *d) + way * rate_step, d->rate_change);
            *d = moved.coherence > d->coherence ? moved : *d;
            const drift_t changed = with_middle_rate(s, middle_rate(s, *d), d->rate_change + way * change_step);
            *d = changed.coherence > d->coherence ? changed : *d;
        }
    }
}

// Measures all pilots of a frame at the coarse rates from `first` to `last`; their number.
uint32_t measure_pilots(drift_search_t* s, const double* frame, uint32_t first, uint32_t last)
{
    const soundcomm_paras_t& paras = *s->paras;
    s->first_rate = first;
    s->last_rate = last;
    uint32_t pilots = 0;
    for (uint32_t i = 0; i < paras.frame.symbols && pilots < paras.frame.pilot_symbols; ++i) {
        const frame_symbol place = frame_symbol_at(paras, i);
        if (place.is_pilot) {
            measure_pilot(*s, frame, place.number, i);
            ++pilots;
        }
    }
    return pilots;
}

} // namespace

drift_search_t* drift_search_init(const soundcomm_paras_t* paras, const channel_smoother_t* smoother)
{
    if (paras == nullptr || smoother == nullptr || paras->cfg.ofdm_cfg.symbol_len < MIN_SYMBOL_LEN ||
        smoother->sc_num != paras->cfg.ofdm_cfg.sc_num) {
        return nullptr;
    }
    search_ptr s{alloc_record<drift_search_t>()};
    if (!s) {
        return nullptr;
    }
    s->paras = paras;
    s->smoother = smoother;
    const ofdm_cfg& ofdm = paras->cfg.ofdm_cfg;
    const frame_clock fastest = make_clock(*paras, COARSE_REACH * COARSE_STEP, 0.0);
    const double shift =
        std::max(fastest.received_anchor - fastest.sent_anchor, paras->frame.frame_length * COARSE_REACH * COARSE_STEP);
    s->margin = static_cast<uint32_t>(std::ceil(shift / BLOCK_LEN));
    s->block_num = ofdm.symbol_len / BLOCK_LEN + 2 * s->margin;
    const uint64_t sc_num = ofdm.sc_num;
    const uint64_t entries = uint64_t{paras->frame.pilot_symbols} * COARSE_NUM;
    s->block_sums = alloc_array<double>(2 * sc_num * s->block_num);
    s->response = alloc_array<double>(2 * sc_num);
    s->block_steps = alloc_array<double>(2 * sc_num);
    s->work = alloc_array<double>(3 * sc_num);
    s->middles = alloc_zeroed<double>(entries);
    s->energy = alloc_zeroed<double>(entries);
    s->coefficients = alloc_zeroed<double>(2 * entries * smoother->rank);
    s->sum = alloc_array<double>(2 * size_t{smoother->rank});
    const bool complete = s->block_sums != nullptr && s->response != nullptr && s->block_steps != nullptr &&
                          s->work != nullptr && s->middles != nullptr && s->energy != nullptr &&
                          s->coefficients != nullptr && s->sum != nullptr;
    return complete ? s.release() : nullptr;
}

void drift_search_free(drift_search_t* search)
{
    if (search != nullptr) {
        for (double* block : {search->block_sums, search->response, search->block_steps, search->work, search->middles,
                              search->energy, search->coefficients, search->sum}) {
            std::free(block);
        }
        std::free(search);
    }
}

uint32_t drift_search_find(drift_search_t* search, const double* frame, drift_t* found, uint32_t max_found)
{
    const uint32_t pilots = measure_pilots(search, frame, 0, COARSE_NUM - 1);
    if (pilots < 2 && max_found != 0) { // nothing to compare
        found[0] = {0.0, 0.0, coherence(*search, 0.0, 0.0)};
        return 1;
    }
    uint32_t count = 0;
    for (int b = -RATE_CHANGE_REACH; b <= RATE_CHANGE_REACH && max_found != 0; ++b) {
        for (int f = -FINE_REACH; f <= FINE_REACH; ++f) {
            count = insert(*search, with_middle_rate(*search, f * FINE_STEP, b * RATE_CHANGE_STEP), found, count,
                           max_found);
        }
    }
    for (uint32_t i = 0; i < count; ++i) {
        refine(*search, &found[i]);
    }
    std::sort(found, found + count, [](const drift_t& a, const drift_t& b) { return a.coherence > b.coherence; });
    return count;
}

namespace kosc {

drift_t find_drift_near(double rate, double reach, microphone_frame* frames, uint32_t frame_num)
{
    const auto coarse = [](double r) { return std::clamp(r / COARSE_STEP + COARSE_REACH, 0.0, COARSE_NUM - 1.0); };
    // A change of rate moves the outer pilots' rates by half of what it amounts to along the frame.
    const double outer = reach + RATE_CHANGE_REACH * RATE_CHANGE_STEP * frames[0].search->paras->frame.frame_length / 2;
    for (uint32_t n = 0; n < frame_num; ++n) {
        measure_pilots(frames[n].search, frames[n].samples, static_cast<uint32_t>(std::floor(coarse(rate - outer))),
                       static_cast<uint32_t>(std::ceil(coarse(rate + outer))));
    }
    // Re(C * exp(-j*turn)), with C the prefixes' correlation and `turn` by how much the rate turns the band's middle
    // from a prefix to the end that it repeats, symbol_len samples on.
    const auto prefixes_for = [&](double middle) {
        const ofdm_cfg& ofdm = frames[0].search->paras->cfg.ofdm_cfg;
        const double turn =
            omega(*frames[0].search, ofdm.sc_start_idx + (ofdm.sc_num - 1) / 2.0) * ofdm.symbol_len * middle;
        double sum = 0.0;
        for (uint32_t n = 0; n < frame_num; ++n) {
            sum += frames[n].prefixes.re * std::cos(turn) + frames[n].prefixes.im * std::sin(turn);
        }
        return PREFIX_WORTH * sum / frame_num;
    };
    const auto joined = [&](double middle, double rate_change) {
        drift_t d{0.0, rate_change, 0.0};
        for (uint32_t n = 0; n < frame_num; ++n) {
            const drift_t single = with_middle_rate(*frames[n].search, middle, rate_change);
            d.rate = single.rate;
            d.coherence += single.coherence / frame_num;
        }
        const double steps = (middle - rate) / NEAR_STEP;
        d.coherence += prefixes_for(middle) - NEAR_PENALTY * steps * steps;
        return d;
    };
    const drift_search_t& s = *frames[0].search;
    const int fine = static_cast<int>(reach / FINE_STEP);
    drift_t best{};
    for (int b = -RATE_CHANGE_REACH; b <= RATE_CHANGE_REACH; ++b) {
        for (int f = -fine; f <= fine; ++f) {
            const drift_t tried = joined(rate + f * FINE_STEP, b * RATE_CHANGE_STEP);
            best = tried.coherence > best.coherence ? tried : best;
        }
    }
    double rate_step = FINE_STEP / 2;
    double change_step = RATE_CHANGE_STEP / 2;
    for (int i = 0; i < REFINEMENTS; ++i, rate_step /= 2, change_step /= 2) {
        for (int way = -1; way <= 1; way += 2) {
            const drift_t moved = joined(middle_rate(s, best) + way * rate_step, best.rate_change);
            best = moved.coherence > best.coherence ? moved : best;
            const drift_t changed = joined(middle_rate(s, best), best.rate_change + way * change_step);
            best = changed.coherence > best.coherence ? changed : best;
        }
    }
    best.coherence -= prefixes_for(middle_rate(s, best)); // which noise has too
    for (uint32_t n = 0; n < frame_num; ++n) {
        frames[n].coherence = coherence(*frames[n].search, best.rate, best.rate_change);
    }
    return best;
}

} // namespace kosc
