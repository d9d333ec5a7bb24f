// Any configuration: a usable record with some fields replaced by any number. It is refused with a message, or it
// carries a message to a frame and a frame to the receiver without a fault, while allocations fail.
#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

#include "failing_malloc.h"
#include "input.h"
#include "kosc/core.h"
#include "log_sink.h"

namespace {

// Beyond these a record is built and released, but not used: one frame would take seconds.
constexpr uint32_t MOST_SAMPLES = 1 << 15;
constexpr uint32_t MOST_MESSAGE_BYTES = 1 << 12;
constexpr uint64_t MOST_DECODER_STEPS = 1 << 22; // trellis states times bits
// The table of a longer code, made twice, takes seconds; its limit of size is held by a test of the code.
constexpr uint32_t MOST_CONSTRAINT = 18;

constexpr uint32_t POLYNOMIALS = 16; // stored; a record that counts more of them lies about its own array

struct configuration {
    soundcomm_cfg_t cfg;
    std::vector<uint32_t> polynomials;
};

// Every number of a record by its place.
uint32_t* field(soundcomm_cfg_t* cfg, uint32_t which)
{
    conv_code_cfg& conv = cfg->channel_code_cfg.paras.conv;
    uint32_t* const fields[] = {
        &cfg->msg_byte_len,        &cfg->crc_cfg.bits,           &cfg->crc_cfg.group,
        &cfg->crc_cfg.put_crc,     &cfg->interleaver_cfg.stride, &cfg->mod_cfg.type,
        &cfg->ofdm_cfg.symbol_len, &cfg->ofdm_cfg.cp_len,        &cfg->ofdm_cfg.sc_start_idx,
        &cfg->ofdm_cfg.sc_num,     &cfg->pilot_cfg.pilot_type,   &cfg->pilot_cfg.data_pilot_rate,
        &cfg->fade_cfg.enable,     &cfg->fade_cfg.len,           &conv.constraint,
        &conv.polynomial_num};
    return fields[which % std::size(fields)];
}

void set_code(fuzz_input* in, configuration* c)
{
    channel_code_cfg& code = c->cfg.channel_code_cfg;
    code.type = in->byte() % 3;
    if (code.type == KOSC_CODE_LINEAR) {
        code.paras.linear = {in->byte() % 4 != 0 ? 8 : in->argument(), in->byte() % 4 != 0 ? 2 : in->argument()};
        return;
    }
    code.paras.conv = {in->byte() % (MOST_CONSTRAINT + 1U), c->polynomials.data(), 1 + in->byte() % POLYNOMIALS};
    const uint32_t limit = uint32_t{1} << code.paras.conv.constraint;
    for (uint32_t& polynomial : c->polynomials) {
        const uint32_t any = in->take<uint32_t>();
        polynomial = any % 16 == 0 ? any : any / 16 % limit;
    }
}

// Keeps what the caller of the library has to: an array of so many polynomials, and time to wait for the result.
void keep_honest(configuration* c)
{
    channel_code_cfg& code = c->cfg.channel_code_cfg;
    if (code.type != KOSC_CODE_LINEAR && code.paras.conv.polynomials != nullptr) {
        code.paras.conv.polynomial_num = std::min(code.paras.conv.polynomial_num, POLYNOMIALS);
        if (code.paras.conv.constraint > MOST_CONSTRAINT && code.paras.conv.constraint <= 24) {
            code.paras.conv.constraint = MOST_CONSTRAINT;
        }
    }
}

void take_configuration(fuzz_input* in, configuration* c)
{
    c->cfg = *soundcomm_default_cfg();
    c->polynomials.assign(POLYNOMIALS, 7);
    std::copy_n(c->cfg.channel_code_cfg.paras.conv.polynomials, 3, c->polynomials.begin());
    c->cfg.channel_code_cfg.paras.conv.polynomials = c->polynomials.data();
    for (uint32_t left = in->byte() % 24; left > 0; --left) {
        const uint32_t kind = in->byte();
        if (kind < 16) {
            set_code(in, c);
        } else if (kind < 32) {
            c->cfg.ofdm_cfg.papr = kind < 24 ? static_cast<int32_t>(kind % 4) : in->take<int32_t>();
        } else if (kind < 36 && c->cfg.channel_code_cfg.type != KOSC_CODE_LINEAR) {
            c->cfg.channel_code_cfg.paras.conv.polynomials = nullptr;
        } else if (kind < 96) {
            *field(&c->cfg, kind) = uint32_t{1} << (in->byte() % 32);
        } else {
            *field(&c->cfg, kind) = in->argument();
        }
    }
    keep_honest(c);
}

bool is_quick(const soundcomm_paras_t* paras)
{
    const conv_code_t* const code = paras->conv_code;
    const uint64_t steps = code == nullptr ? 1 : uint64_t{code->state_num} * code->polynomial_num * paras->frame.bits;
    return paras->frame.frame_length <= MOST_SAMPLES && paras->cfg.msg_byte_len <= MOST_MESSAGE_BYTES &&
           steps <= MOST_DECODER_STEPS;
}

// One frame in a buffer of just its size; without samples when it cannot be encoded, of which a message tells.
std::vector<int16_t> encode(fuzz_input* in, const soundcomm_context_t* ctx)
{
    const soundcomm_paras_t* const paras = soundcomm_get_paras(ctx, 0);
    const uint32_t length = soundcomm_get_frame_length(paras);
    const std::vector<uint8_t> message(paras->cfg.msg_byte_len, in->byte());
    std::vector<double> frame(length);
    std::vector<int16_t> pcm(length);
    log_lines = 0;
    if (soundcomm_encode(paras, message.data(), paras->cfg.msg_byte_len, frame.data(), length) != 0) {
        FUZZ_CHECK(log_lines != 0);
        return {};
    }
    const audio_gain_t gain = {in->byte() % 2U, in->byte() / 100.0};
    FUZZ_CHECK(soundcomm_make_audio(soundcomm_default_audio_format(), gain, frame.data(), length, pcm.data()));
    return pcm;
}

rx_sync_paras take_sync_paras(fuzz_input* in)
{
    rx_sync_paras sync = soundcomm_default_rx_sync_paras();
    const uint32_t kind = in->byte();
    sync.peak_threshold = (kind & 1) != 0 ? in->take<double>() : sync.peak_threshold;
    sync.search_margin = (kind & 2) != 0 ? in->argument() : sync.search_margin;
    sync.corr_step = (kind & 4) != 0 ? in->argument() : sync.corr_step;
    return sync;
}

audio_format_t take_format(fuzz_input* in)
{
    audio_format_t format = soundcomm_default_audio_format();
    const uint32_t kind = in->byte();
    format.track_num = kind % 8 == 0 ? in->argument() : 1 + kind / 8 % 2;
    format.sample_rate = kind / 16 == 0 ? in->argument() : format.sample_rate;
    return format;
}

// The frame on every track, between pieces of silence and of noise, in blocks of one size.
std::vector<int16_t> make_sound(fuzz_input* in, const std::vector<int16_t>& frame, uint32_t tracks)
{
    const size_t before = in->below(3000);
    const size_t after = in->below(MOST_SAMPLES);
    const uint32_t noise = in->byte();
    uint32_t state = noise;
    std::vector<int16_t> sound((before + frame.size() + after) * tracks);
    for (size_t i = 0; i < sound.size(); ++i) {
        const size_t at = i / tracks;
        state = state * 1664525U + 1013904223U;
        sound[i] = at >= before && at - before < frame.size() ? frame[at - before]
                                                              : static_cast<int16_t>((state >> 16) * noise / 256);
    }
    return sound;
}

// A store of messages of just the size that the library asks for, or none.
void give_room(fuzz_input* in, std::vector<uint8_t>* store, uint32_t most, result_part_t* part)
{
    const uint32_t kind = in->byte();
    store->resize(kind % 4 == 0 ? 0 : kind % 4 == 1 ? std::min(most, uint32_t{in->byte()}) : most);
    store->shrink_to_fit();
    *part = {store->empty() ? nullptr : store->data(), static_cast<uint32_t>(store->size()), 0};
}

void listen(fuzz_input* in, soundcomm_context_t* ctx, const std::vector<int16_t>& frame)
{
    const uint32_t tracks = soundcomm_get_paras(ctx, 1)->track_num;
    const std::vector<int16_t> sound = make_sound(in, frame, tracks);
    const auto total = static_cast<uint32_t>(sound.size() / tracks);
    const uint32_t block = std::max(1 + in->below(MOST_SAMPLES), total / 50);
    const uint32_t decode_type = in->byte() % 6;
    std::array<std::vector<uint8_t>, 4> stores;
    for (uint32_t at = 0; at < total; at += block) {
        const uint32_t count = std::min(block, total - at);
        result_set_t results{};
        results.decode_type = decode_type;
        result_part_t* const parts[] = {&results.correct, &results.error, &results.second.correct,
                                        &results.second.error};
        for (size_t i = 0; i < stores.size(); ++i) {
            give_room(in, &stores[i], soundcomm_decode_length(ctx, count), parts[i]);
        }
        const std::vector<int16_t> piece(sound.begin() + static_cast<ptrdiff_t>(at) * tracks,
                                         sound.begin() + static_cast<ptrdiff_t>(at + count) * tracks);
        log_lines = 0;
        FUZZ_CHECK(soundcomm_receive(ctx, piece.data(), count, &results) == 0 || log_lines != 0);
    }
}

void use(fuzz_input* in, soundcomm_context_t* ctx)
{
    const std::vector<int16_t> frame = is_quick(soundcomm_get_paras(ctx, 0)) ? encode(in, ctx) : std::vector<int16_t>();
    const rx_sync_paras sync = take_sync_paras(in);
    const audio_format_t format = take_format(in);
    log_lines = 0;
    if (!soundcomm_init_receive(ctx, sync, format)) {
        FUZZ_CHECK(log_lines != 0);
        return;
    }
    if (!is_quick(soundcomm_get_paras(ctx, 1))) {
        return;
    }
    log_lines = 0;
    FUZZ_CHECK(soundcomm_config_second_look(ctx, in->byte() % 3) || log_lines != 0);
    listen(in, ctx, frame);
    const std::vector<double> samples(frame.begin(), frame.end());
    std::vector<uint8_t> message(soundcomm_get_paras(ctx, 1)->cfg.msg_byte_len);
    const auto room = static_cast<uint32_t>(message.size());
    frame_quality_t quality;
    soundcomm_decode(ctx, samples.data(), static_cast<uint32_t>(samples.size()), message.data(), message.data(), room);
    soundcomm_decode_second_look(ctx, samples.data(), static_cast<uint32_t>(samples.size()), message.data(), room,
                                 &quality);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    fuzz_input in(data, size);
    const uint32_t settings = in.byte();
    set_up_log(2 + settings / 4 % 3, false, false); // refusals are told at WARN and ERROR;
    configuration tx;
    configuration rx;
    take_configuration(&in, &tx);
    if ((settings & 1) != 0) {
        take_configuration(&in, &rx);
    }
    fail_allocations(&in, (settings & 2) != 0);
    soundcomm_get_frame_length_from_cfg(&tx.cfg);
    soundcomm_context_t* const ctx = soundcomm_init(&tx.cfg, (settings & 1) != 0 ? &rx.cfg : &tx.cfg);
    FUZZ_CHECK(ctx != nullptr || log_lines != 0);
    if (ctx != nullptr) {
        use(&in, ctx);
        soundcomm_release(ctx);
    }
    allow_allocations();
    return 0;
}
