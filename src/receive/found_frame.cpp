#include "receive/found_frame.h"

#include "decode/decode_and_check.h"
#include "kosc/decoder.h"
#include "log/log_macros.h"
#include "platform/bounded.h"
#include "second_look/second_look_area.h"

using namespace kosc;

namespace {

void append(result_part_t* part, const uint8_t* msg, uint32_t msg_len)
{
    if (msg != nullptr && has_room(*part, msg_len)) {
        memcpy_s(part->buffer, part->room, msg, msg_len);
        part->buffer += msg_len;
        part->room -= msg_len;
    }
}

// The verdict after the second look, with the message in `target` when it found one; keeps the record of the frame.
uint32_t look_again(const soundcomm_context_t& ctx, const double* frame, uint32_t verdict, uint8_t* target)
{
    const soundcomm_paras_t& paras = *ctx.rx_paras;
    frame_quality_t* const quality = &paras.second_look->quality;
    *quality = {};
    quality->needed = verdict == 0;
    quality->decoded = verdict == 1;
    if (verdict == 0 || (verdict == 1 && paras.second_look->mode == KOSC_SECOND_LOOK_MEASURE)) {
        const uint32_t again = soundcomm_decode_second_look(
            &ctx, frame, paras.frame.frame_length, verdict == 0 ? target : nullptr, paras.cfg.msg_byte_len, quality);
        quality->needed = verdict == 0;
        quality->decoded = verdict == 1 || again == 1;
    }
    return quality->decoded ? 1 : verdict;
}

// Decodes one found frame and files it in `slot`. With `report`, its message is read also when nobody else wants it.
uint32_t decode_into(soundcomm_context_t* ctx, receive_track_t* entry, result_slot_t* slot, const double* frame,
                     frame_report_t* report)
{
    const soundcomm_paras_t& paras = *ctx->rx_paras;
    const uint32_t msg_len = paras.cfg.msg_byte_len;
    const bool wanted = report != nullptr || has_room(slot->correct, msg_len) || has_room(slot->error, msg_len);
    uint8_t* const target = wanted ? entry->decode_cache : nullptr;
    uint32_t failed_crcs = 0;
    uint32_t verdict = decode_and_check(ctx, frame, paras.frame.frame_length, {target, target, msg_len}, &failed_crcs);
    if (paras.second_look != nullptr) {
        verdict = look_again(*ctx, frame, verdict, target);
    }
    if (verdict == 1) {
        KOSC_LOG_INFO("%s success", "do_decode");
        append(&slot->correct, target, msg_len);
        ++slot->correct.count;
    } else if (verdict == 0) {
        KOSC_LOG_INFO("%s CRC unmatch", "do_decode");
        append(&slot->error, target, msg_len);
        ++slot->error.count;
    }
    if (report != nullptr) {
        report->verdict = verdict;
        report->failed_crcs = failed_crcs;
        if (verdict != KOSC_DECODE_FAILED) { // else the cache has nothing of this frame
            report->msg = target;
            report->msg_len = msg_len;
        }
        report->samples = frame;
        report->quality = soundcomm_get_frame_quality(ctx);
    }
    return verdict;
}

} // namespace

namespace kosc {

uint32_t decode_found(soundcomm_context_t* ctx, receive_track_t* entry, result_slot_t* slot, const sync_iter& iter,
                      const double* frame)
{
    const soundcomm_paras_t& paras = *ctx->rx_paras;
    if (paras.frame_callback == nullptr) {
        return decode_into(ctx, entry, slot, frame, nullptr);
    }
    const data_container& container = *entry->container;
    frame_report_t report{};
    // The buffer counts in 32 bits and anew after a reset, so the start is counted back from the newest sample.
    report.sample = paras.received - (vector_size(container.corrcoef) - iter.frame_start_in_corr);
    report.track = static_cast<uint32_t>(entry - paras.track);
    report.correlation =
        *vector_view(container.corrcoef, static_cast<int32_t>(iter.frame_start_in_corr + container.sync_length - 1), 1);
    const uint32_t verdict = decode_into(ctx, entry, slot, frame, &report);
    paras.frame_callback(&report, paras.frame_callback_user);
    return verdict;
}

} // namespace kosc

uint32_t do_decode(soundcomm_context_t* ctx, receive_track_t* entry, result_slot_t* slot, const double* frame)
{
    return decode_into(ctx, entry, slot, frame, nullptr);
}
