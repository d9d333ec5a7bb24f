#include "combine/frame_group.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "combine/mixture.h"
#include "combine/rivals.h"
#include "config/frame_symbols.h"
#include "math/constants.h"

namespace kosc {
namespace {

constexpr double LEAST_WEIGHT = 0.5;     // of a frame that joins a group
constexpr double RATE_DISTANCE = 500e-6; // within which drifts may be one

void sum_group(const frame_group& group, float* sum)
{
    std::fill_n(sum, WEAK_BITS, 0.0F);
    for (uint32_t i = 0; i < group.count; ++i) {
        add_llr(group.weight[i], group.frame[i]->llr, sum);
    }
}

// The sum of soft bits made anew, under the group's turns and, with `decided`, by the block in maker.sent.
void sum_again(const frame_group& group, bool decided, group_decoder* decoder)
{
    std::fill_n(decoder->sum, WEAK_BITS, 0.0F);
    for (uint32_t i = 0; i < group.count; ++i) {
        soften_again(*group.frame[i], group.turn[i], decided, &decoder->maker);
        const auto weight = static_cast<float>(group.weight[i]);
        for (uint32_t j = 0; j < WEAK_BITS; ++j) {
            decoder->sum[j] += weight * decoder->maker.llr[j];
        }
    }
}

} // namespace

void add_llr(double weight, const int8_t* llr, float* sum)
{
    const auto unit = static_cast<float>(weight * LLR_UNIT);
    for (uint32_t j = 0; j < WEAK_BITS; ++j) {
        sum[j] += unit * static_cast<float>(llr[j]);
    }
}

decoded_block decode_sum(group_decoder* decoder)
{
    std::copy_n(decoder->sum, WEAK_BITS, decoder->llr);
    return decode_soft({decoder->llr, WEAK_BITS, {}, {}}, &decoder->decoder);
}

double prior_log_odds(double rate, double other_rate)
{
    constexpr double ANY = -0.7; // a store holds other messages, and noise
    const double distance = std::fabs(rate - other_rate);
    if (distance < 150e-6) {
        return ANY + 2.0;
    }
    return distance < RATE_DISTANCE ? ANY + 0.3 : ANY - 1.0;
}

void gather(weak_frame* kept, uint32_t kept_num, group_decoder* decoder, frame_group* group)
{
    constexpr int ROUNDS = 3;
    constexpr double NEGLIGIBLE = 1e-3; // a weight that may as well be none: most frames kept are of this kind
    double weight[MAX_KEPT] = {};
    float* const sum = decoder->sum;
    sum_group(*group, sum);
    bool is_new = true; // the sum, since the bits were last expected from it
    const auto add = [&](double share, uint32_t i) {
        if (share != 0.0) {
            add_llr(share, kept[i].llr, sum);
            is_new = true;
        }
    };
    for (int round = 0; round < ROUNDS; ++round) {
        for (uint32_t i = 0; i < kept_num; ++i) {
            if (!kept[i].used) {
                continue;
            }
            add(-weight[i], i);
            if (is_new) {
                expect_bits(sum, decoder->expected);
                is_new = false;
            }
            const double odds = agreement(decoder->expectations, decoder->expected, kept[i].llr, nullptr) +
                                prior_log_odds(group->frame[0]->rate, kept[i].rate);
            const double share = 1 / (1 + std::exp(-odds));
            weight[i] = share < NEGLIGIBLE ? 0.0 : share;
            add(weight[i], i);
        }
    }
    for (uint32_t i = 0; i < kept_num; ++i) {
        if (kept[i].used && weight[i] > LEAST_WEIGHT) {
            group->frame[group->count] = &kept[i];
            group->weight[group->count] = weight[i];
            group->turn[group->count] = 0.0;
            group->snr += weight[i] * kept[i].snr;
            ++group->count;
        }
    }
}

bool decode_group(const frame_group& group, int passes, bool turned, group_decoder* decoder)
{
    if (turned) {
        sum_again(group, false, decoder);
    } else {
        sum_group(group, decoder->sum);
    }
    decoded_block block = decode_sum(decoder);
    ++decoder->attempts;
    for (int pass = 1; pass < passes && !block.crcs_match; ++pass) {
        if (pass > 1 && std::memcmp(block.bits, decoder->earlier_bits, WEAK_STEPS) == 0) {
            break; // every further pass would decide the same
        }
        std::copy_n(block.bits, WEAK_STEPS, decoder->earlier_bits);
        encode_block(block, &decoder->decoder, decoder->maker.sent);
        sum_again(group, true, decoder);
        block = decode_sum(decoder);
        ++decoder->attempts;
    }
    std::copy_n(block.bytes, WEAK_MSG_LEN, decoder->msg);
    sign_block(block.bits, decoder->decoder, decoder->sign);
    if (!block.crcs_match) {
        return false;
    }
    const bool refused = has_rival(block.bits, *decoder) || (group.count > 1 && is_mixture(group, decoder));
    decoder->refused += refused ? 1 : 0;
    return !refused;
}

// The channels differ from frame to frame, the turn of one pilot against another does not: summed over frames and pairs
// of pilots, each pair weighted by how far its channels agree, the drift that turns all of them back adds up most.
void find_common_drift(frame_group* group, group_decoder* decoder)
{
    constexpr double REACH = 400e-6;
    constexpr double STEP = 10e-6;
    constexpr uint32_t PAIRS = WEAK_PILOTS * (WEAK_PILOTS - 1) / 2;
    const soundcomm_paras_t& paras = *decoder->maker.paras;
    const frame_channel& channel = decoder->maker.channel;
    uint32_t symbol[WEAK_PILOTS] = {};
    for (uint32_t i = 0; i < WEAK_SYMBOLS; ++i) {
        const frame_symbol place = frame_symbol_at(paras, i);
        if (place.is_pilot) {
            symbol[place.number] = i;
        }
    }
    kom_complex product[MAX_GROUP][PAIRS] = {};
    for (uint32_t n = 0; n < group->count; ++n) {
        const channel_estimate estimate = measure_pilots(*group->frame[n], &decoder->maker);
        for (uint32_t a = 0, pair = 0; a < WEAK_PILOTS; ++a) {
            for (uint32_t b = a + 1; b < WEAK_PILOTS; ++b, ++pair) {
                kom_complex sum = {0.0, 0.0};
                for (uint32_t r = 0; r < channel.smoother->rank; ++r) {
                    sum = sum + load(coefficient_row(channel, symbol[a]), r) *
                                    conj(load(coefficient_row(channel, symbol[b]), r));
                }
                product[n][pair] = sum * kom_complex{1 / std::max(estimate.noise, 1e-30), 0.0};
            }
        }
    }
    const double middle = group->frame[0]->rate;
    double best = -HUGE_VAL;
    double common = middle;
    for (int step = -static_cast<int>(REACH / STEP); step <= static_cast<int>(REACH / STEP); ++step) {
        const double rate = middle + step * STEP;
        double sum = 0.0;
        for (uint32_t n = 0; n < group->count; ++n) {
            const double off = rate - group->frame[n]->rate;
            if (std::fabs(off) > RATE_DISTANCE) {
                continue;
            }
            for (uint32_t a = 0, pair = 0; a < WEAK_PILOTS; ++a) {
                for (uint32_t b = a + 1; b < WEAK_PILOTS; ++b, ++pair) {
                    const double angle = turn_of_symbol(paras, off, symbol[b]) - turn_of_symbol(paras, off, symbol[a]);
                    const kom_complex& q = product[n][pair];
                    sum += q.re * std::cos(angle) - q.im * std::sin(angle);
                }
            }
        }
        if (sum > best) {
            best = sum;
            common = rate;
        }
    }
    for (uint32_t n = 0; n < group->count; ++n) {
        const double off = common - group->frame[n]->rate;
        group->turn[n] = std::fabs(off) > RATE_DISTANCE ? 0.0 : off;
    }
}

bool regroup(group_decoder* decoder, frame_group* group)
{
    constexpr double CONTESTED = 0.85; // of the mean over the block
    constexpr uint32_t MOST_CONTESTED = 12;
    constexpr int ROUNDS = 4;
    float* const sum = decoder->sum;
    sum_group(*group, sum);
    double support[WEAK_BITS];
    double total = 0.0;
    for (uint32_t j = 0; j < WEAK_BITS; ++j) {
        support[j] = sum[j] * decoder->sign[j];
        total += support[j];
    }
    bool among[WEAK_BITS] = {};
    uint32_t contested = 0;
    for (uint32_t w = 0; w < WINDOWS; ++w) {
        bool window[WEAK_BITS] = {};
        mark_bits(w * WINDOW_BITS, WINDOW_BITS, decoder->decoder, window);
        double in_window = 0.0;
        uint32_t bits = 0;
        for (uint32_t j = 0; j < WEAK_BITS; ++j) {
            in_window += window[j] ? support[j] : 0.0;
            bits += window[j] ? 1 : 0;
        }
        if (in_window / bits < CONTESTED * total / WEAK_BITS) {
            ++contested;
            mark_bits(w * WINDOW_BITS, WINDOW_BITS, decoder->decoder, among);
        }
    }
    if (contested == 0 || contested >= MOST_CONTESTED) {
        return false;
    }
    double weight[MAX_GROUP] = {};
    std::fill_n(sum, WEAK_BITS, 0.0F);
    for (uint32_t i = 0; i < group->fresh; ++i) {
        add_llr(1.0, group->frame[i]->llr, sum);
    }
    for (int round = 0; round < ROUNDS; ++round) {
        for (uint32_t i = group->fresh; i < group->count; ++i) {
            add_llr(-weight[i], group->frame[i]->llr, sum);
            expect_bits(sum, decoder->expected);
            const double odds = agreement(decoder->expectations, decoder->expected, group->frame[i]->llr, among);
            weight[i] = 1 / (1 + std::exp(-odds));
            add_llr(weight[i], group->frame[i]->llr, sum);
        }
    }
    const uint32_t before = group->count;
    group->count = group->fresh;
    group->snr = 0.0;
    for (uint32_t i = 0; i < before; ++i) {
        const bool stays = i < group->fresh || weight[i] > LEAST_WEIGHT;
        if (!stays) {
            continue;
        }
        const uint32_t at = i < group->fresh ? i : group->count++;
        group->frame[at] = group->frame[i];
        group->weight[at] = 1.0;
        group->turn[at] = 0.0;
        group->snr += group->frame[at]->snr;
    }
    return group->count < before && group->count > group->fresh;
}

bool carries(const weak_frame& frame, const float* sign)
{
    constexpr double DEVIATIONS = 3.0;
    double sum = 0.0;
    double energy = 0.0;
    for (uint32_t j = 0; j < WEAK_BITS; ++j) {
        const double llr = frame.llr[j];
        sum += llr * sign[j];
        energy += llr * llr;
    }
    return sum > DEVIATIONS * std::sqrt(energy);
}

} // namespace kosc
