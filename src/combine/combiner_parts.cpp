#include "combine/combiner_parts.h"

#include <algorithm>

#include "platform/owned.h"

using namespace kosc;

namespace {

constexpr uint32_t KEPT_BY_ONE = 32; // frames

using combiner_ptr = owned<combiner_t, free_combiner>;

// The frame layout that the search is made for; the band is free.
bool is_supported(const soundcomm_cfg_t& cfg, const frame_struct_t& frame)
{
    const soundcomm_cfg_t& usual = *soundcomm_default_cfg();
    const conv_code_cfg& conv = cfg.channel_code_cfg.paras.conv;
    const conv_code_cfg& usual_conv = usual.channel_code_cfg.paras.conv;
    const ofdm_cfg& ofdm = cfg.ofdm_cfg;
    return cfg.msg_byte_len == usual.msg_byte_len && cfg.crc_cfg.bits == usual.crc_cfg.bits &&
           cfg.crc_cfg.group == usual.crc_cfg.group && cfg.crc_cfg.put_crc == usual.crc_cfg.put_crc &&
           cfg.channel_code_cfg.type == usual.channel_code_cfg.type && conv.constraint == usual_conv.constraint &&
           conv.polynomial_num == usual_conv.polynomial_num && ofdm.symbol_len == usual.ofdm_cfg.symbol_len &&
           ofdm.cp_len == usual.ofdm_cfg.cp_len && ofdm.sc_num == usual.ofdm_cfg.sc_num &&
           ofdm.papr == usual.ofdm_cfg.papr && cfg.fade_cfg.len == usual.fade_cfg.len &&
           frame.symbols == WEAK_SYMBOLS && frame.pilot_symbols == WEAK_PILOTS && frame.bits == 8 * BLOCK_BYTES;
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
    // A search is over when its candidate's samples are fetched: they lie in the same place.
    constexpr uint64_t PER_INPUT = sizeof(search_scratch::input[0]);
    const uint64_t search_size = sizeof(search_scratch) - (MAX_INPUTS - c->input_num) * PER_INPUT;
    const uint64_t samples = c->input_num * paras.frame.frame_length;
    carver parts{block};
    parts.take(&maker.samples[0], std::max<uint64_t>(samples, (search_size + sizeof(double) - 1) / sizeof(double)));
    c->search.scratch = reinterpret_cast<search_scratch*>(maker.samples[0]);
    for (uint32_t e = 0; e < c->input_num; ++e) {
        microphone& input = c->input[e];
        maker.samples[e] = block == nullptr ? nullptr : maker.samples[0] + e * size_t{paras.frame.frame_length};
        parts.take(&input.raw, input.raw_len);
        parts.take(&input.re, input.raw_len / DECIMATION);
        parts.take(&input.im, input.raw_len / DECIMATION);
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
    parts.take(&c->store.frames, c->store.count);
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
    for (uint32_t e = 0; e < c->input_num; ++e) {
        maker.search[e] = drift_search_init(&paras, maker.smoother);
        if (maker.search[e] == nullptr) {
            return false;
        }
    }
    return true;
}

} // namespace

namespace kosc {

combiner_t* make_combiner(const soundcomm_paras_t& paras, uint32_t input_num)
{
    constexpr uint32_t RAW_LEN = 32768; // a segment, what the receiver's own search is behind by, and the wait
    if (!is_supported(paras.cfg, paras.frame)) {
        return nullptr;
    }
    combiner_ptr c{alloc_record<combiner_t>()};
    if (!c) {
        return nullptr;
    }
    c->input_num = input_num;
    c->store.count = input_num == 1 ? KEPT_BY_ONE : MAX_KEPT;
    if (!make_parts(paras, c.get())) {
        return nullptr;
    }
    for (uint32_t e = 0; e < input_num; ++e) {
        c->input[e].raw_len = RAW_LEN;
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

} // namespace kosc
