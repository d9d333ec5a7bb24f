#include "receive/combined_frames.h"

#include <algorithm>
#include <cmath>

#include "combine/combiner.h"
#include "log/log_macros.h"
#include "platform/owned.h"
#include "receive/found_frame.h"

// A combiner and the receivers that feed it, one for each input; it is part of all of their parameter sets.
struct combining_t {
    combiner_t* combiner; // owned
    struct {
        soundcomm_paras_t* paras;
        uint64_t lead;              // what the receiver's samples are counted ahead of the combiner's; wraps
        kosc::given_message* given; // the host's, may be null
        uint32_t room;
        uint32_t count;
    } input[KOSC_MAX_TRACKS];
};

using namespace kosc;

namespace {

void free_combining(combining_t* combining)
{
    free_combiner(combining->combiner);
    std::free(combining);
}

using combining_ptr = owned<combining_t, free_combining>;

uint32_t input_of(const soundcomm_paras_t& paras) { return paras.combining->input[0].paras == &paras ? 0 : 1; }

// For one receiver, or for two together; what was on before is off.
bool start(soundcomm_paras_t* first, soundcomm_paras_t* second)
{
    combining_ptr combining{alloc_record<combining_t>()};
    if (!combining) {
        return false;
    }
    combining->combiner = make_combiner(*first, second == nullptr ? 1 : 2);
    if (combining->combiner == nullptr) {
        return false;
    }
    combining->input[0].paras = first;
    combining->input[1].paras = second;
    first->combining = combining.get();
    if (second != nullptr) {
        second->combining = combining.get();
    }
    combining.release();
    return true;
}

bool is_prepared(const soundcomm_context_t& ctx)
{
    return ctx.rx_paras->track_num == 1 && ctx.audio_format.sample_rate == WEAK_SAMPLE_RATE;
}

bool same_band(const soundcomm_context_t& a, const soundcomm_context_t& b)
{
    return a.rx_paras->cfg.ofdm_cfg.sc_start_idx == b.rx_paras->cfg.ofdm_cfg.sc_start_idx;
}

bool switch_on(soundcomm_context_t* first, soundcomm_context_t* second, uint32_t mode)
{
    if (!is_prepared(*first) || (second != nullptr && !is_prepared(*second))) {
        return false;
    }
    if (mode == KOSC_COMBINING_TOGETHER) {
        return first != second && same_band(*first, *second) && start(first->rx_paras, second->rx_paras);
    }
    return start(first->rx_paras, nullptr) && (second == nullptr || start(second->rx_paras, nullptr));
}

// What files a recovered message: the call that it was recovered in.
struct receiving {
    soundcomm_context_t* ctx;
    result_slot_t* slot;
};

void file_recovered(const recovered_message& message, void* user)
{
    const receiving& call = *static_cast<receiving*>(user);
    const soundcomm_paras_t& paras = *call.ctx->rx_paras;
    combining_t& combining = *paras.combining;
    auto& input = combining.input[input_of(paras)];
    frame_report_t frame{};
    frame.sample =
        static_cast<uint64_t>(std::llround(std::max(message.start, 0.0))) + input.lead; // both count one time
    frame.verdict = 1;
    frame.msg = message.msg;
    frame.msg_len = WEAK_MSG_LEN;
    frame.combined = &message.report;
    if (input.given != nullptr && input.count < input.room && has_room(call.slot->correct, frame.msg_len)) {
        input.given[input.count++] = {call.slot->correct.buffer, message.report};
    }
    file_decoded(frame, call.slot);
    if (paras.frame_callback != nullptr) {
        frame.samples = samples_of(message.input, message.start, combining.combiner);
        paras.frame_callback(&frame, paras.frame_callback_user);
    }
}

} // namespace

namespace kosc {

void list_combined(const soundcomm_paras_t& paras, given_message* given, uint32_t room)
{
    if (paras.combining != nullptr) {
        auto& input = paras.combining->input[input_of(paras)];
        input.given = given;
        input.room = room;
        input.count = 0;
    }
}

const combined_report_t* find_combined(const soundcomm_paras_t& paras, const uint8_t* msg)
{
    if (paras.combining == nullptr) {
        return nullptr;
    }
    const auto& input = paras.combining->input[input_of(paras)];
    for (uint32_t i = 0; i < input.count; ++i) {
        if (input.given[i].msg == msg) {
            return &input.given[i].report;
        }
    }
    return nullptr;
}

uint32_t most_combined(const soundcomm_paras_t& paras, uint32_t data_len)
{
    constexpr uint32_t SEGMENT = SEGMENT_LEN * DECIMATION; // one message each, of both inputs when they are apart
    constexpr uint32_t SPARE = 4;
    return paras.combining != nullptr ? 2 * (data_len / SEGMENT) + SPARE : 0;
}

void begin_combined_block(const soundcomm_paras_t& paras, uint32_t data_len)
{
    if (paras.combining != nullptr) {
        auto& input = paras.combining->input[input_of(paras)];
        begin_block(input_of(paras), data_len, paras.combining->combiner);
        input.lead = paras.received - samples_taken(*paras.combining->combiner, input_of(paras));
        input.count = 0;
    }
}

void note_decoded(const soundcomm_paras_t& paras, const frame_report_t& frame)
{
    if (paras.combining == nullptr || frame.verdict != 1 || frame.msg == nullptr) {
        return;
    }
    const uint32_t e = input_of(paras);
    const auto start = static_cast<int64_t>(frame.sample - paras.combining->input[e].lead);
    note_delivered(e, static_cast<double>(start), frame.msg, paras.combining->combiner);
}

void combine_piece(soundcomm_context_t* ctx, const int16_t* samples, uint32_t piece, result_slot_t* slot)
{
    const soundcomm_paras_t& paras = *ctx->rx_paras;
    if (paras.combining != nullptr && paras.track_num == 1) {
        receiving call{ctx, slot};
        feed_combiner(input_of(paras), samples, piece, file_recovered, &call, paras.combining->combiner);
    }
}

void restart_combining(const soundcomm_paras_t& paras)
{
    if (paras.combining != nullptr) {
        restart_combiner(paras.combining->combiner);
    }
}

void end_combining(soundcomm_paras_t* paras)
{
    combining_t* const combining = paras->combining;
    if (combining == nullptr) {
        return;
    }
    for (const auto& input : combining->input) {
        if (input.paras != nullptr) {
            input.paras->combining = nullptr;
        }
    }
    free_combining(combining);
}

} // namespace kosc

bool soundcomm_config_combining(soundcomm_context_t* first, soundcomm_context_t* second, uint32_t mode)
{
    const bool needs_both = mode == KOSC_COMBINING_TOGETHER;
    KOSC_RETURN_IF(first == nullptr || (needs_both && second == nullptr), false, "ctx is null");
    end_combining(first->rx_paras);
    if (second != nullptr) {
        end_combining(second->rx_paras);
    }
    KOSC_RETURN_IF(mode > KOSC_COMBINING_TOGETHER, false, "unknown combining mode %u", mode);
    if (mode == KOSC_COMBINING_OFF || switch_on(first, second, mode)) {
        return true;
    }
    end_combining(first->rx_paras); // on for both or for none
    KOSC_LOG_WARN("no combining for this configuration");
    return false;
}

combining_counts_t soundcomm_get_combining_counts(const soundcomm_context_t* ctx)
{
    const bool on = ctx != nullptr && ctx->rx_paras->combining != nullptr;
    return on ? counts_of(*ctx->rx_paras->combining->combiner) : combining_counts_t{};
}
