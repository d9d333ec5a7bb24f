#include "combine/weak_frame.h"

#include <algorithm>
#include <cmath>

#include "math/constants.h"

namespace kosc {
namespace {

// Drifts that are searched around the hypothesis of a candidate: an echo 48 samples late looks to the second pilot like
// a drift of 2400 ppm, and halfway between is where search and echo may pull a hypothesis.
constexpr double REACH = 1200e-6;
// Coherence below which a candidate is taken for noise, of one microphone and of two together.
constexpr double LEAST_COHERENCE[MAX_INPUTS] = {0.15, 0.14};

constexpr int8_t LARGEST = 127;

// Of a frame's symbols: see microphone_frame. What lies near a prefix's ends is faded, an echo's, or another symbol's.
kom_complex correlate_prefixes(const microphone& input, const soundcomm_paras_t& paras, double start, double rate)
{
    constexpr uint32_t FIRST = 6; // baseband samples of a prefix
    constexpr uint32_t END = 28;
    constexpr uint32_t APART = WEAK_SYMBOL_LEN / DECIMATION;
    const uint32_t mask = input.raw_len / DECIMATION - 1;
    const ofdm_cfg& ofdm = paras.cfg.ofdm_cfg;
    kom_complex sum = {0.0, 0.0};
    double energy = 0.0;
    for (uint32_t i = 0; i < WEAK_SYMBOLS; ++i) {
        const double symbol = start + i * (ofdm.symbol_len + ofdm.cp_len) * (1 - rate);
        const auto at = static_cast<uint64_t>(std::llround(symbol / DECIMATION));
        for (uint64_t n = at + FIRST; n < at + END; ++n) {
            const kom_complex prefix = {input.re[n & mask], input.im[n & mask]};
            const kom_complex end = {input.re[(n + APART) & mask], input.im[(n + APART) & mask]};
            sum = sum + end * conj(prefix);
            energy += power(prefix) + power(end);
        }
    }
    return sum * kom_complex{2 / std::max(energy, 1e-9), 0.0};
}

void keep_received(const double* values, weak_frame* frame)
{
    double highest = 1e-9;
    for (uint32_t i = 0; i < 2 * WEAK_CELLS; ++i) {
        highest = std::max(highest, std::fabs(values[i]));
    }
    frame->unit = static_cast<float>(highest / LARGEST);
    for (uint32_t i = 0; i < 2 * WEAK_CELLS; ++i) {
        frame->received[i] = static_cast<int8_t>(std::lround(values[i] / highest * LARGEST));
    }
}

// The kept values back into the channel, each symbol turned by what the rate is to differ by.
void load_received(const weak_frame& frame, double turn_rate, weak_frame_maker* maker)
{
    for (uint32_t i = 0; i < WEAK_SYMBOLS; ++i) {
        const double angle = -turn_of_symbol(*maker->paras, turn_rate, i);
        const kom_complex turn = {frame.unit * std::cos(angle), frame.unit * std::sin(angle)};
        for (uint32_t k = i * WEAK_SC_NUM; k < (i + 1) * WEAK_SC_NUM; ++k) {
            const kom_complex value = {static_cast<double>(frame.received[2 * k]),
                                       static_cast<double>(frame.received[2 * k + 1])};
            store(maker->channel.received, k, value * turn);
        }
    }
}

} // namespace

bool fetch_samples(const microphone& input, double start, uint32_t length, double* samples)
{
    const double rounded = std::round(start);
    if (rounded < 0.0) {
        return false;
    }
    const auto first = static_cast<uint64_t>(rounded);
    if (first + length > input.raw_count || input.raw_count - first > input.raw_len) {
        return false;
    }
    for (uint32_t n = 0; n < length; ++n) {
        samples[n] = input.raw[(first + n) & (input.raw_len - 1)];
    }
    return true;
}

double turn_of_symbol(const soundcomm_paras_t& paras, double rate, uint32_t i)
{
    const ofdm_cfg& ofdm = paras.cfg.ofdm_cfg;
    const double middle_subcarrier = ofdm.sc_start_idx + (ofdm.sc_num - 1) / 2.0;
    const double distance = (i - (WEAK_SYMBOLS - 1) / 2.0) * (ofdm.symbol_len + ofdm.cp_len);
    return 2 * PI * middle_subcarrier / ofdm.symbol_len * rate * distance;
}

void keep_llr(const float* llr, int8_t* kept)
{
    for (uint32_t j = 0; j < WEAK_BITS; ++j) {
        kept[j] = static_cast<int8_t>(std::lround(llr[j] / LLR_UNIT));
    }
}

uint32_t take_weak_frames(const microphone* const* inputs, const uint32_t* input_numbers, uint32_t input_num,
                          const candidate& found, weak_frame_maker* maker, weak_frame* frames)
{
    const soundcomm_paras_t& paras = *maker->paras;
    const uint32_t length = paras.frame.frame_length;
    const frame_clock hypothesis = make_clock(paras, found.rate, 0.0);
    microphone_frame received[MAX_INPUTS];
    for (uint32_t e = 0; e < input_num; ++e) {
        // The clock's anchor lies where the receiver's own search would have found the frame, on the ambiguity ridge;
        // this search knows the drift and has found the true start.
        const double start = found.start[e] - (hypothesis.received_anchor - hypothesis.sent_anchor);
        if (!fetch_samples(*inputs[e], start, length, maker->samples[e])) {
            return 0;
        }
        frame_channel view = maker->channel;
        view.samples = maker->samples[e];
        take_frame(view.samples, &view);
        received[e] = {maker->search[e], maker->samples[e],
                       correlate_prefixes(*inputs[e], paras, found.start[e], found.rate), 0.0};
    }
    const drift_t drift = find_drift_near(found.rate, REACH, received, input_num);
    if (!(drift.coherence >= LEAST_COHERENCE[input_num - 1])) {
        return 0;
    }
    const frame_clock clock = make_clock(paras, drift.rate, drift.rate_change);
    for (uint32_t e = 0; e < input_num; ++e) {
        weak_frame* const frame = &frames[e];
        frame_channel view = maker->channel;
        view.samples = maker->samples[e];
        transform_symbols(clock, &view);
        frame->input = input_numbers[e];
        frame->start = found.start[e];
        frame->rate = clock.rate_at(length / 2.0);
        frame->coherence = received[e].coherence;
        take_received(maker, frame);
    }
    return input_num;
}

void take_received(weak_frame_maker* maker, weak_frame* frame)
{
    const channel_estimate estimate = estimate_by_pilots(maker->sent, &maker->channel);
    learn_channel(estimate, maker->channel.joint, &maker->learnt);
    soften(estimate, false, &maker->channel, &maker->learnt, maker->llr);
    frame->used = true;
    frame->snr = estimate.signal / std::max(estimate.noise, 1e-30);
    keep_received(maker->channel.received, frame);
    keep_llr(maker->llr, frame->llr);
}

channel_estimate measure_pilots(const weak_frame& frame, weak_frame_maker* maker)
{
    load_received(frame, 0.0, maker);
    return estimate_by_pilots(maker->sent, &maker->channel);
}

double soften_again(const weak_frame& frame, double turn_rate, bool decided, weak_frame_maker* maker)
{
    load_received(frame, turn_rate, maker);
    const channel_estimate estimate =
        decided ? estimate_by_all(maker->sent, &maker->channel) : estimate_by_pilots(maker->sent, &maker->channel);
    learn_channel(estimate, maker->channel.joint, &maker->learnt);
    soften(estimate, decided, &maker->channel, &maker->learnt, maker->llr);
    return estimate.signal / std::max(estimate.noise, 1e-30);
}

} // namespace kosc
