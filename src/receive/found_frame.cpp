#include "receive/found_frame.h"

#include <cstring>

#include "decode/decode_and_check.h"
#include "kosc/decoder.h"
#include "log/log_macros.h"
#include "platform/bounded.h"
#include "receive/combined_frames.h"
#include "second_look/second_look_area.h"

using namespace kosc;

namespace {

void append(result_part_t* part, const frame_report_t& frame)
{
    if (frame.msg != nullptr && has_room(*part, frame.msg_len)) {
        bounded_copy(part->buffer, part->room, frame.msg, frame.msg_len);
        part->buffer += frame.msg_len;
        part->room -= frame.msg_len;
    }
}

// Takes the second look at a frame that was decoded once, and keeps what it measured; `target` receives the message
// of a frame that failed.
void look_again(const soundcomm_context_t& ctx, uint8_t* target, frame_report_t* frame)
{
    const soundcomm_paras_t& paras = *ctx.rx_paras;
    const bool needed = frame->verdict == 0;
    const bool decoded = frame->verdict == 1;
    frame_quality_t quality{};
    if (needed || (decoded && paras.second_look->mode == KOSC_SECOND_LOOK_MEASURE)) {
        const uint32_t again =
            soundcomm_decode_second_look(&ctx, frame->samples, paras.frame.frame_length, needed ? target : nullptr,
                                         paras.cfg.msg_byte_len, &quality);
        frame->verdict = again == 1 ? 1 : frame->verdict;
    }
    quality.needed = needed;
    quality.decoded = frame->verdict == 1;
    frame->quality = paras.second_look->quality = quality;
}

// Decodes the frame at `samples` into `target`, which may be null.
void decode(const soundcomm_context_t& ctx, const double* samples, uint8_t* target, frame_report_t* frame)
{
    const soundcomm_paras_t& paras = *ctx.rx_paras;
    const uint32_t msg_len = paras.cfg.msg_byte_len;
    frame->samples = samples;
    frame->verdict =
        decode_and_check(&ctx, samples, paras.frame.frame_length, {target, target, msg_len}, &frame->failed_crcs);
    if (paras.second_look != nullptr) {
        look_again(ctx, target, frame);
    }
    if (target != nullptr && frame->verdict != KOSC_DECODE_FAILED) { // else the target has nothing of this frame
        frame->msg = target;
        frame->msg_len = msg_len;
    }
}

void file(const frame_report_t& frame, result_slot_t* slot)
{
    if (frame.verdict == 1) {
        KOSC_LOG_INFO("%s success", "do_decode");
        append(&slot->correct, frame);
        ++slot->correct.count;
    } else if (frame.verdict == 0) {
        KOSC_LOG_INFO("%s CRC unmatch", "do_decode");
        append(&slot->error, frame);
        ++slot->error.count;
    }
}

bool wants_message(const result_slot_t& slot, uint32_t msg_len)
{
    return has_room(slot.correct, msg_len) || has_room(slot.error, msg_len);
}

// Where the iterator's frame was found. The buffer counts in 32 bits and anew after a reset, so its start is counted
// back from the newest sample.
frame_report_t locate(const soundcomm_paras_t& paras, const receive_track_t* entry, const sync_iter& iter)
{
    const data_container& container = *entry->container;
    frame_report_t frame{};
    frame.sample = paras.received - (vector_size(container.corrcoef) - iter.frame_start_in_corr);
    frame.track = static_cast<uint32_t>(entry - paras.track);
    frame.correlation =
        *vector_view(container.corrcoef, static_cast<int32_t>(iter.frame_start_in_corr + container.sync_length - 1), 1);
    return frame;
}

// The frame that the second look recovered last on a track; null when it is off.
recovered_frame* last_recovered(const soundcomm_paras_t& paras, uint32_t track)
{
    return paras.second_look != nullptr ? &paras.second_look->recovered[track] : nullptr;
}

// Whether a decoded frame is the one that was recovered last, found again by an echo.
bool is_same_frame(const soundcomm_paras_t& paras, const recovered_frame& last, const frame_report_t& frame)
{
    return last.any && frame.sample - last.sample < paras.frame.frame_length / 2 &&
           std::memcmp(last.msg, frame.msg, frame.msg_len) == 0;
}

} // namespace

namespace kosc {

frame_report_t examine_found(const soundcomm_context_t& ctx, const receive_track_t* entry, const sync_iter& iter,
                             const double* samples)
{
    frame_report_t frame = locate(*ctx.rx_paras, entry, iter);
    decode(ctx, samples, entry->decode_cache, &frame);
    note_decoded(*ctx.rx_paras, frame);
    return frame;
}

void deliver_found(const soundcomm_context_t& ctx, const frame_report_t& frame, result_slot_t* slot)
{
    file(frame, slot);
    if (ctx.rx_paras->frame_callback != nullptr) {
        ctx.rx_paras->frame_callback(&frame, ctx.rx_paras->frame_callback_user);
    }
}

frame_report_t decode_found(soundcomm_context_t* ctx, receive_track_t* entry, result_slot_t* slot,
                            const sync_iter& iter, const double* samples, bool early)
{
    const soundcomm_paras_t& paras = *ctx->rx_paras;
    const bool wanted = paras.frame_callback != nullptr || paras.second_look != nullptr || paras.combining != nullptr ||
                        wants_message(*slot, paras.cfg.msg_byte_len);
    frame_report_t frame = locate(paras, entry, iter);
    recovered_frame* const last = last_recovered(paras, frame.track);
    if (last != nullptr && last->any && last->sample == frame.sample) {
        frame.verdict = 1; // search windows overlap: it was found before
        frame.quality = last->quality;
        return frame;
    }
    decode(*ctx, samples, wanted ? entry->decode_cache : nullptr, &frame);
    note_decoded(paras, frame);
    if (last != nullptr && frame.verdict == 1) {
        if (is_same_frame(paras, *last, frame)) {
            return frame;
        }
        if (frame.quality.needed || early) {
            bounded_copy(last->msg, frame.msg_len, frame.msg, frame.msg_len);
            *last = {true, frame.sample, frame.quality, last->msg};
        }
    }
    deliver_found(*ctx, frame, slot);
    return frame;
}

void file_decoded(const frame_report_t& frame, result_slot_t* slot) { file(frame, slot); }

} // namespace kosc

uint32_t do_decode(soundcomm_context_t* ctx, receive_track_t* entry, result_slot_t* slot, const double* frame)
{
    frame_report_t decoded{};
    const bool wanted = wants_message(*slot, ctx->rx_paras->cfg.msg_byte_len);
    decode(*ctx, frame, wanted ? entry->decode_cache : nullptr, &decoded);
    file(decoded, slot);
    return decoded.verdict;
}
