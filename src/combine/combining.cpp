#include "combine/combiner.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>

#include "kosc/crc.h"
#include "platform/owned.h"

using namespace kosc;

namespace {

constexpr double KEPT_SECONDS = 12;
constexpr uint32_t KEPT_BY_ONE = 32;               // frames
constexpr uint32_t MAX_DELIVERED = 16;             // messages that are remembered
constexpr uint32_t MAX_NOTED = 16;                 // frames that the receiver's own search delivered
constexpr uint32_t BLOCK_BYTES = WEAK_MSG_LEN + 4; // a message and its CRCs
constexpr uint32_t PIECE = 1024;                   // samples heard between two looks at what is complete
// Score from which a candidate is worth listening to, of one ear and of two: where noise has a few a second.
constexpr float LEAST_SCORE[MAX_EARS] = {0.18F, 0.29F};
// Sums of SNR, as ratios, below which no frame and no group decodes.
constexpr double LEAST_FRAME_SNR = 0.6;
constexpr double LEAST_GROUP_SNR = 0.4;

// Until a frame's last start in a segment is past by so much, the receiver's own search may still deliver it: its
// window of a frame's length ends a synchronisation pilot behind the frame.
constexpr uint32_t OWN_SEARCH = 14400;
// Samples by which an ear may be late and is still heard together with the other.
constexpr uint32_t WAIT_FOR_EAR = 9600;

struct delivered_message {
    bool any;
    double start; // of the frame that it was last recovered from
    uint8_t msg[WEAK_MSG_LEN];
};

struct noted_frame {
    bool any;
    uint32_t ear;
    double start;
};

} // namespace

struct combiner_t {
    group_decoder groups;
    frame_search search;
    band_mixer mixer;
    uint32_t ear_num;
    microphone ear[MAX_EARS];
    uint64_t next[MAX_EARS]; // first baseband sample of the next segment
    uint32_t kept_num;
    weak_frame* kept; // kept_num of them
    weak_frame fresh[MAX_EARS];
    delivered_message delivered[MAX_DELIVERED];
    uint32_t next_delivered;
    noted_frame noted[MAX_NOTED];
    uint32_t next_noted;
    combining_counts_t counts;
    uint32_t fed; // ear whose samples are being fed
    take_recovered take;
    void* user;
    void* block; // owned; all arrays
};

namespace {

using combiner_ptr = owned<combiner_t, free_combiner>;

// The frame layout that the search is made for; the band is free.
bool is_supported(const soundcomm_cfg_t& cfg, const frame_struct_t& frame)
{
    const soundcomm_cfg_t& own = *soundcomm_default_cfg();
    const conv_code_cfg& conv = cfg.channel_code_cfg.paras.conv;
    const conv_code_cfg& own_conv = own.channel_code_cfg.paras.conv;
    const ofdm_cfg& ofdm = cfg.ofdm_cfg;
    return cfg.msg_byte_len == own.msg_byte_len && cfg.crc_cfg.bits == own.crc_cfg.bits &&
           cfg.crc_cfg.group == own.crc_cfg.group && cfg.crc_cfg.put_crc == own.crc_cfg.put_crc &&
           cfg.channel_code_cfg.type == own.channel_code_cfg.type && conv.constraint == own_conv.constraint &&
           conv.polynomial_num == own_conv.polynomial_num && ofdm.symbol_len == own.ofdm_cfg.symbol_len &&
           ofdm.cp_len == own.ofdm_cfg.cp_len && ofdm.sc_num == own.ofdm_cfg.sc_num && ofdm.papr == own.ofdm_cfg.papr &&
           cfg.fade_cfg.len == own.fade_cfg.len && frame.symbols == WEAK_SYMBOLS &&
           frame.pilot_symbols == WEAK_PILOTS && frame.bits == 8 * BLOCK_BYTES;
}

// Hands out the arrays of one block, each at a multiple of 32 bytes; with no block it only counts.
class carver {
public:
    explicit carver(void* block) : block_(static_cast<uint8_t*>(block)) {}
    template <typename T> void take(T** part, uint64_t count)
    {
        constexpr uint64_t ALIGNMENT = 32;
        *part = block_ == nullptr ? nullptr : reinterpret_cast<T*>(block_ + used_);
        used_ += (count * sizeof(T) + ALIGNMENT - 1) / ALIGNMENT * ALIGNMENT;
    }
    uint64_t used() const { return used_; }

private:
    uint8_t* block_;
    uint64_t used_ = 0;
};

uint64_t carve(combiner_t* c, void* block)
{
    const soundcomm_paras_t& paras = *c->groups.maker.paras;
    const uint64_t rank = c->groups.maker.smoother->rank;
    weak_frame_maker& maker = c->groups.maker;
    frame_channel& channel = maker.channel;
    carver parts{block};
    for (uint32_t e = 0; e < c->ear_num; ++e) {
        microphone& ear = c->ear[e];
        parts.take(&maker.samples[e], paras.frame.frame_length);
        parts.take(&ear.raw, ear.raw_len);
        parts.take(&ear.re, ear.raw_len / DECIMATION);
        parts.take(&ear.im, ear.raw_len / DECIMATION);
    }
    channel.samples = maker.samples[0];
    parts.take(&channel.tilt_gain, WEAK_SC_NUM);
    parts.take(&channel.received, 2 * WEAK_CELLS);
    parts.take(&channel.coefficients, 2 * WEAK_SYMBOLS * rank);
    parts.take(&channel.joint, 2 * rank);
    parts.take(&channel.phases, WEAK_SYMBOLS);
    parts.take(&channel.response, 2 * WEAK_SC_NUM);
    parts.take(&channel.work, 3 * WEAK_SC_NUM);
    parts.take(&maker.sent, 2 * WEAK_CELLS);
    parts.take(&c->kept, c->kept_num);
    return parts.used();
}

// The parts that are made by functions of their own.
bool make_parts(const soundcomm_paras_t& paras, combiner_t* c)
{
    weak_frame_maker& maker = c->groups.maker;
    maker.paras = &paras;
    maker.smoother = channel_smoother_init(WEAK_SC_NUM, WEAK_SYMBOL_LEN, paras.cfg.ofdm_cfg.cp_len);
    if (maker.smoother == nullptr || !init_learnt_channel(*maker.smoother, &maker.learnt) ||
        !init_soft_decoder(paras, &c->groups.decoder)) {
        return false;
    }
    for (uint32_t e = 0; e < c->ear_num; ++e) {
        maker.search[e] = drift_search_init(&paras, maker.smoother);
        if (maker.search[e] == nullptr) {
            return false;
        }
    }
    return true;
}

double seconds_apart(double a, double b) { return std::fabs(a - b) / WEAK_SAMPLE_RATE; }

// The bits of a message and its CRCs.
void block_of(const uint8_t* msg, const combiner_t& c, uint8_t* bits)
{
    uint8_t bytes[BLOCK_BYTES];
    std::copy_n(msg, WEAK_MSG_LEN, bytes);
    calculate_crc(msg, WEAK_MSG_LEN, &c.groups.maker.paras->cfg.crc_cfg, bytes + WEAK_MSG_LEN);
    byte2bin(bits, bytes, BLOCK_BYTES);
}

// Forgets the kept frames that carry the block whose signs lie in the decoder.
void drop_carriers(combiner_t* c)
{
    for (uint32_t i = 0; i < c->kept_num; ++i) {
        if (c->kept[i].used && carries(c->kept[i], c->groups.sign)) {
            c->kept[i].used = false;
        }
    }
}

// Whether the message was delivered within the last seconds; then that is prolonged, else it is remembered.
bool was_delivered(const uint8_t* msg, double start, combiner_t* c)
{
    for (auto& known : c->delivered) {
        if (known.any && std::memcmp(known.msg, msg, WEAK_MSG_LEN) == 0) {
            const bool lately = seconds_apart(known.start, start) < KEPT_SECONDS;
            known.start = start;
            return lately;
        }
    }
    auto& place = c->delivered[c->next_delivered++ % MAX_DELIVERED];
    place.any = true;
    place.start = start;
    std::copy_n(msg, WEAK_MSG_LEN, place.msg);
    return false;
}

bool was_noted(const combiner_t& c, uint32_t ear, double start)
{
    constexpr double SAME_FRAME = 300; // samples: its search may have taken an echo, or a drifting pilot's early peak
    return std::any_of(std::begin(c.noted), std::end(c.noted), [&](const auto& note) {
        return note.any && note.ear == ear && std::fabs(note.start - start) < SAME_FRAME;
    });
}

combined_report_t describe(const frame_group& group, uint64_t attempts)
{
    constexpr double SAME_FRAME = 5760; // samples: half a frame; the other ear hears it at the same time
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
        report.channels |= 1U << frame.ear;
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
        newest = group.frame[i]->ear == c->fed ? group.frame[i] : newest;
    }
    message.msg = c->groups.msg;
    message.ear = newest->ear;
    message.start = newest->start;
    message.report = describe(group, c->groups.attempts - attempts_before);
    drop_carriers(c);
    if (was_delivered(c->groups.msg, newest->start, c)) {
        ++c->counts.repeats;
        return;
    }
    ++c->counts.messages;
    c->take(message, c->user);
}

// Keeps a frame in the place of the oldest or least coherent one, unless it is worse than all.
void keep(const weak_frame& frame, combiner_t* c)
{
    constexpr double COHERENCE_A_SECOND = 0.01;
    weak_frame* place = nullptr;
    double lowest = HUGE_VAL;
    for (uint32_t i = 0; i < c->kept_num; ++i) {
        weak_frame& kept = c->kept[i];
        const double age = seconds_apart(frame.start, kept.start);
        kept.used = kept.used && age < KEPT_SECONDS;
        const double worth = kept.used ? kept.coherence - COHERENCE_A_SECOND * age : -HUGE_VAL;
        if (place == nullptr || worth < lowest) {
            lowest = worth;
            place = &kept;
        }
    }
    if (lowest < frame.coherence) {
        *place = frame;
    }
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
    gather(c->kept, c->kept_num, d, &group);
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

void take_fresh(uint32_t count, combiner_t* c)
{
    ++c->counts.frames;
    if (decode_fresh(count, c)) {
        return;
    }
    for (uint32_t i = 0; i < count; ++i) {
        keep(c->fresh[i], c);
    }
}

void work_on_segment(const uint32_t* ears, uint32_t count, combiner_t* c)
{
    const microphone* heard[MAX_EARS];
    for (uint32_t e = 0; e < count; ++e) {
        heard[e] = &c->ear[ears[e]];
    }
    const candidate found = search_segment(heard, count, c->next[ears[0]], &c->search);
    if (found.score < LEAST_SCORE[count - 1]) {
        return;
    }
    for (uint32_t e = 0; e < count; ++e) {
        if (was_noted(*c, ears[e], found.start[e])) {
            return;
        }
    }
    ++c->counts.candidates;
    const uint32_t frames = take_weak_frames(heard, ears, count, found, &c->groups.maker, c->fresh);
    if (frames != 0) {
        take_fresh(frames, c);
    }
}

// Works on all segments that are complete. An ear waits for the other for a while, to be heard together with it.
void work(combiner_t* c)
{
    constexpr uint64_t NEED = SEGMENT_LEN * DECIMATION + OWN_SEARCH;
    static_assert(NEED > (SEGMENT_READS + SEARCH_AROUND) * DECIMATION + band_mixer::REACH, "a segment is whole then");
    const auto is_ready = [&](uint32_t e, uint64_t wait) {
        return c->ear[e].raw_count >= c->next[e] * DECIMATION + NEED + wait;
    };
    for (bool more = true; more;) {
        more = false;
        const uint32_t both[] = {0, 1};
        if (c->ear_num == 2 && c->next[0] == c->next[1] && is_ready(0, 0) && is_ready(1, 0)) {
            work_on_segment(both, 2, c);
            c->next[0] += SEGMENT_LEN;
            c->next[1] += SEGMENT_LEN;
            more = true;
            continue;
        }
        for (uint32_t e = 0; e < c->ear_num; ++e) {
            const bool is_alone = c->ear_num == 1 || c->next[e] < c->next[1 - e];
            if (is_ready(e, is_alone ? 0 : WAIT_FOR_EAR)) {
                work_on_segment(&both[e], 1, c);
                c->next[e] += SEGMENT_LEN;
                more = true;
            }
        }
    }
}

} // namespace

namespace kosc {

combiner_t* make_combiner(const soundcomm_paras_t& paras, uint32_t ear_num)
{
    constexpr uint32_t RAW_LEN = 32768; // a segment, what the receiver's own search is behind by, and the wait
    if (!is_supported(paras.cfg, paras.frame)) {
        return nullptr;
    }
    combiner_ptr c{alloc_record<combiner_t>()};
    if (!c) {
        return nullptr;
    }
    c->ear_num = ear_num;
    c->kept_num = ear_num == 1 ? KEPT_BY_ONE : MAX_KEPT;
    if (!make_parts(paras, c.get())) {
        return nullptr;
    }
    for (uint32_t e = 0; e < ear_num; ++e) {
        c->ear[e].raw_len = RAW_LEN;
        c->next[e] = SEARCH_AROUND;
    }
    const uint64_t size = carve(c.get(), nullptr);
    c->block = alloc_zeroed<uint8_t>(size);
    if (c->block == nullptr) {
        return nullptr;
    }
    carve(c.get(), c->block);
    group_decoder& d = c->groups;
    d.maker.channel.paras = &paras;
    d.maker.channel.smoother = d.maker.smoother;
    init_tilt_gain(&d.maker.channel);
    place_pilots(paras, d.maker.sent);
    init_bit_expectations(&d.expectations);
    for (uint32_t part = 0; part < CRC_PARTS; ++part) {
        mark_bits((WINDOWS - CRC_PARTS + part) * WINDOW_BITS, WINDOW_BITS, d.decoder, d.crc_place[part]);
    }
    init_band_mixer(paras.cfg.ofdm_cfg.sc_start_idx, &c->mixer);
    init_frame_search(paras, &c->search);
    return c.release();
}

void free_combiner(combiner_t* c)
{
    if (c != nullptr) {
        for (drift_search_t* const search : c->groups.maker.search) {
            drift_search_free(search);
        }
        channel_smoother_free(c->groups.maker.smoother);
        release_soft_decoder(&c->groups.decoder);
        std::free(c->block);
        std::free(c);
    }
}

void begin_block(uint32_t e, uint64_t count, combiner_t* c)
{
    if (c->ear_num != 2) {
        return;
    }
    microphone* const ear = &c->ear[e];
    const uint64_t other = c->ear[1 - e].raw_count;
    if (ear->raw_count + count + ear->raw_len >= other) {
        return;
    }
    // The second is fed after the first, whose block then is the same moment's.
    const uint64_t now = e == 0 ? other : other - count;
    skip(now - ear->raw_count, ear);
    const uint64_t segments = (ear->raw_count / DECIMATION + SEGMENT_LEN) / SEGMENT_LEN;
    c->next[e] = SEARCH_AROUND + segments * SEGMENT_LEN;
}

void feed_combiner(uint32_t ear, const int16_t* samples, uint32_t count, take_recovered take, void* user, combiner_t* c)
{
    c->fed = ear;
    c->take = take;
    c->user = user;
    for (uint32_t done = 0; done < count; done += PIECE) {
        hear(c->mixer, samples + done, std::min(count - done, PIECE), &c->ear[ear]);
        work(c);
    }
}

void take_frame_heard(const weak_frame* frames, uint32_t count, take_recovered take, void* user, combiner_t* c)
{
    c->take = take;
    c->user = user;
    c->fed = frames[0].ear;
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

uint64_t samples_heard(const combiner_t& c, uint32_t ear) { return c.ear[ear].raw_count; }

void restart_combiner(combiner_t* c)
{
    for (uint32_t e = 0; e < c->ear_num; ++e) {
        skip(0, &c->ear[e]);
        c->ear[e].raw_count = 0;
        c->ear[e].baseband_count = 0;
        c->next[e] = SEARCH_AROUND;
    }
    for (uint32_t i = 0; i < c->kept_num; ++i) {
        c->kept[i].used = false;
    }
    std::fill(std::begin(c->delivered), std::end(c->delivered), delivered_message{});
    std::fill(std::begin(c->noted), std::end(c->noted), noted_frame{});
}

void note_delivered(uint32_t ear, double start, const uint8_t* msg, combiner_t* c)
{
    auto& note = c->noted[c->next_noted++ % MAX_NOTED];
    note.any = true;
    note.ear = ear;
    note.start = start;
    was_delivered(msg, start, c);
    uint8_t bits[8 * BLOCK_BYTES];
    block_of(msg, *c, bits);
    sign_block(bits, c->groups.decoder, c->groups.sign);
    drop_carriers(c);
}

combining_counts_t counts_of(const combiner_t& c)
{
    combining_counts_t counts = c.counts;
    counts.attempts = c.groups.attempts;
    counts.refused = c.groups.refused;
    return counts;
}

const double* samples_of(uint32_t ear, double start, combiner_t* c)
{
    double* const samples = c->groups.maker.samples[0];
    return fetch_samples(c->ear[ear], start, c->groups.maker.paras->frame.frame_length, samples) ? samples : nullptr;
}

} // namespace kosc
