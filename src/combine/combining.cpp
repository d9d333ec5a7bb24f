// From weak frames to messages: each alone, then with those that carry the same.
#include "combine/combiner_parts.h"

#include <algorithm>
#include <cmath>

#include "kosc/crc.h"

using namespace kosc;

namespace {

// Sums of SNR, as ratios, below which no frame and no group decodes.
constexpr double LEAST_FRAME_SNR = 0.6;
constexpr double LEAST_GROUP_SNR = 0.4;

// The bits of a message and its CRCs.
void block_of(const uint8_t* msg, const combiner_t& c, uint8_t* bits)
{
    uint8_t bytes[BLOCK_BYTES];
    std::copy_n(msg, WEAK_MSG_LEN, bytes);
    calculate_crc(msg, WEAK_MSG_LEN, &c.groups.maker.paras->cfg.crc_cfg, bytes + WEAK_MSG_LEN);
    byte2bin(bits, bytes, BLOCK_BYTES);
}

combined_report_t describe(const frame_group& group, uint64_t attempts)
{
    constexpr double SAME_FRAME = 5760; // samples: half a frame; the other input has it at the same time
    constexpr double DB = 10.0;
    combined_report_t report{};
    const weak_frame& newest = *group.frame[0];
    double first = newest.start;
    double snr = 0.0;
    double newest_snr = 0.0;
    for (uint32_t i = 0; i < group.count; ++i) {
        const weak_frame& frame = *group.frame[i];
        bool known = false;
        for (uint32_t k = 0; k < i; ++k) {
            known = known || std::fabs(group.frame[k]->start - frame.start) < SAME_FRAME;
        }
        report.frames += known ? 0 : 1;
        report.channels |= 1U << frame.input;
        first = std::min(first, frame.start);
        snr += frame.snr;
        newest_snr = std::fabs(newest.start - frame.start) < SAME_FRAME ? std::max(newest_snr, frame.snr) : newest_snr;
    }
    report.hearings = group.count;
    report.attempts = static_cast<uint32_t>(attempts);
    report.seconds = (newest.start - first) / WEAK_SAMPLE_RATE;
    report.snr_db = DB * std::log10(snr);
    report.newest_snr_db = DB * std::log10(newest_snr);
    report.drift_ppm = 1e6 * newest.rate;
    return report;
}

void deliver(const frame_group& group, uint64_t attempts_before, combiner_t* c)
{
    recovered_message message{};
    const weak_frame* newest = group.frame[0];
    for (uint32_t i = 1; i < group.fresh; ++i) {
        newest = group.frame[i]->input == c->fed ? group.frame[i] : newest;
    }
    message.msg = c->groups.msg;
    message.input = newest->input;
    message.start = newest->start;
    message.report = describe(group, c->groups.attempts - attempts_before);
    drop_carriers(c->groups.sign, &c->store);
    if (was_delivered(c->groups.msg, newest->start, &c->known)) {
        ++c->counts.repeats;
        return;
    }
    ++c->counts.messages;
    c->take(message, c->user);
}

frame_group group_of(weak_frame* frames, uint32_t count)
{
    frame_group group{};
    group.fresh = count;
    group.count = count;
    for (uint32_t i = 0; i < count; ++i) {
        group.frame[i] = &frames[i];
        group.weight[i] = 1.0;
        group.snr += frames[i].snr;
    }
    return group;
}

// What the fresh frames say, alone and with those kept; true when that gave a message.
bool decode_fresh(uint32_t count, combiner_t* c)
{
    constexpr int PASSES = 3;
    constexpr int GROUP_PASSES = 4;
    group_decoder* const d = &c->groups;
    const uint64_t before = d->attempts;
    const auto gives_message = [&](const frame_group& group, int passes, bool turned) {
        const bool decoded = decode_group(group, passes, turned, d);
        if (decoded) {
            deliver(group, before, c);
        }
        return decoded;
    };
    const frame_group alone = group_of(c->fresh, count);
    if (alone.snr > LEAST_FRAME_SNR && gives_message(alone, PASSES, false)) {
        return true;
    }
    for (uint32_t e = 0; e < count && count > 1; ++e) {
        const frame_group one = group_of(&c->fresh[e], 1);
        if (one.snr > LEAST_FRAME_SNR && gives_message(one, PASSES, false)) {
            return true;
        }
    }
    frame_group group = alone;
    gather(c->store.frames, c->store.count, d, &group);
    if (group.count == count || group.snr <= LEAST_GROUP_SNR) {
        return false;
    }
    if (gives_message(group, GROUP_PASSES, false)) {
        return true;
    }
    frame_group turned = group;
    find_common_drift(&turned, d);
    return gives_message(turned, PASSES, true) ||
           (regroup(d, &group) && group.snr > LEAST_GROUP_SNR && gives_message(group, PASSES, false));
}

} // namespace

namespace kosc {

void take_fresh(uint32_t count, combiner_t* c)
{
    ++c->counts.frames;
    if (decode_fresh(count, c)) {
        return;
    }
    for (uint32_t i = 0; i < count; ++i) {
        keep(c->fresh[i], &c->store);
    }
}

void take_frame_heard(const weak_frame* frames, uint32_t count, take_recovered take, void* user, combiner_t* c)
{
    c->take = take;
    c->user = user;
    c->fed = frames[0].input;
    std::copy_n(frames, count, c->fresh);
    take_fresh(count, c);
}

weak_frame_maker* maker_of(combiner_t* c) { return &c->groups.maker; }

void send_message(const uint8_t* msg, combiner_t* c)
{
    uint8_t bits[WEAK_STEPS] = {}; // and the tail
    block_of(msg, *c, bits);
    encode_block({bits, nullptr, true}, &c->groups.decoder, c->groups.maker.sent);
}

void restart_combiner(combiner_t* c)
{
    for (uint32_t e = 0; e < c->input_num; ++e) {
        skip(0, &c->input[e]);
        c->input[e].raw_count = 0;
        c->input[e].baseband_count = 0;
        c->next[e] = SEARCH_AROUND;
    }
    drop_all(&c->store);
    c->known = {};
}

void note_delivered(uint32_t input, double start, const uint8_t* msg, combiner_t* c)
{
    note_frame(input, start, &c->known);
    was_delivered(msg, start, &c->known);
    uint8_t bits[8 * BLOCK_BYTES];
    block_of(msg, *c, bits);
    sign_block(bits, c->groups.decoder, c->groups.sign);
    drop_carriers(c->groups.sign, &c->store);
}

combining_counts_t counts_of(const combiner_t& c)
{
    combining_counts_t counts = c.counts;
    counts.attempts = c.groups.attempts;
    counts.refused = c.groups.refused;
    return counts;
}

} // namespace kosc
