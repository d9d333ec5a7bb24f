#include "kosc/receiver.h"

#include <algorithm>

#include "kosc/decoder.h"
#include "log/log_macros.h"
#include "platform/owned.h"
#include "receive/combined_frames.h"
#include "receive/crowd_area.h"
#include "receive/crowd_search.h"
#include "receive/found_frame.h"
#include "receive/receive_tracks.h"
#include "sync/receive_filter.h"
#include "sync/search_from.h"

using namespace kosc;

namespace {

constexpr uint32_t FRAMES_BUFFERED = 2;
constexpr uint32_t SPARE_MESSAGES = 2; // frames that began in earlier blocks
constexpr uint32_t MOST_AT_ONCE = 4;   // frames that lie over each other in a crowd

// The driver's own copy of the caller's slots; buffers and rooms move on as messages are appended.
struct internal_results {
    uint32_t decode_type;
    uint32_t slot_count;
    result_slot_t slot[KOSC_MAX_TRACKS];
};

bool prepare_results(uint32_t track_count, const result_set_t& wanted, internal_results* results)
{
    KOSC_RETURN_IF(track_count == 1 && wanted.decode_type == KOSC_DECODE_BOTH_TRACKS, false,
                   "Can't get dual results from a single track.");
    *results = {};
    results->decode_type = wanted.decode_type;
    results->slot_count = wanted.decode_type == KOSC_DECODE_BOTH_TRACKS ? 2 : 1;
    results->slot[0] = {wanted.correct, wanted.error};
    if (results->slot_count == 2) {
        results->slot[1] = wanted.second;
    }
    for (uint32_t i = 0; i < results->slot_count; ++i) {
        if (results->slot[i].correct.buffer == nullptr) {
            KOSC_LOG_DEBUG("correct_output is null.");
        }
        if (results->slot[i].error.buffer == nullptr) {
            KOSC_LOG_DEBUG("error_output is null.");
        }
    }
    return true;
}

// Adds the counts of one piece to the caller's.
void deliver_counts(const result_slot_t& slot, result_part_t* correct, result_part_t* error)
{
    KOSC_LOG_INFO("Decoded %d correct frame", slot.correct.count);
    correct->count += slot.correct.count;
    KOSC_LOG_DEBUG("Decoded %d error frame", slot.error.count);
    error->count += slot.error.count;
}

void reset_tracks(soundcomm_paras_t* paras, uint32_t track_count)
{
    KOSC_LOG_WARN("reset recv buffs.");
    for (uint32_t t = 0; t < track_count; ++t) {
        data_container_reset(paras->track[t].container);
    }
    reset_crowd(paras);
}

// Drops what the search has passed. Where the second look is on, it keeps what a frame needs whose peak lies where the
// search goes on.
void drop_outdated(const soundcomm_paras_t& paras, sync_iter* iter)
{
    data_container& c = *iter->container;
    const uint32_t before_peak = c.sync_length - std::min(c.sync_length, c.corr_step);
    c.kept = paras.second_look != nullptr ? std::min(iter->search_start, before_peak) : 0;
    iter->search_start -= c.kept;
    data_container_rm_outdated(iter);
}

// Decodes every frame found on a track into `slot`; with no slot the frames are only skipped. A frame that cannot be
// decoded is lost alone: the search goes on.
//
// With the second look on, the search takes exactly the steps that it takes without, and so comes by all that it finds
// then: behind a recovered frame it goes on as behind one that failed, where it may find the frame again, which is
// known. A frame that begins in what is kept, before where the search began, is lost to the receiver alone, as the next
// one of a fast sender may be. It is tried, and changes no step either.
void decode_track(soundcomm_context_t* ctx, receive_track_t* entry, result_slot_t* slot)
{
    if (ctx->rx_paras->crowd != nullptr) {
        entry->container->kept = 0; // it keeps by itself
        decode_crowd(ctx, entry, slot);
        return;
    }
    const uint32_t begin = entry->container->kept;
    sync_iter* const iter = search_from(entry->container, begin);
    while (!sync_iter_is_end(iter)) {
        const double* const frame = data_container_get(iter);
        KOSC_LOG_DEBUG("Global offset: %u", sync_iter_get_global_offset(iter));
        if (frame == nullptr) {
            KOSC_LOG_ERROR("This should not be NULL.");
            break;
        }
        const bool early = iter->frame_start_in_corr < begin;
        if (slot != nullptr && decodes_at_once(decode_found(ctx, entry, slot, *iter, frame, early)) && !early) {
            sync_iter_update_decode_state(iter, KOSC_FRAME_DECODED);
        }
        sync_iter_next(iter);
    }
    drop_outdated(*ctx->rx_paras, iter);
    sync_iter_free(iter);
}

// False, with a message, when the decode type cannot be served.
bool check_decode_type(uint32_t decode_type, uint32_t track_count)
{
    KOSC_RETURN_IF(decode_type == KOSC_DECODE_MERGE, false, "MERGE not supportted yet.");
    KOSC_RETURN_IF(decode_type > KOSC_DECODE_MERGE, false, "Unknow decode type, using the first track.");
    KOSC_RETURN_IF(decode_type == KOSC_DECODE_SECOND_TRACK && track_count < 2, false,
                   "Can't get the second track from a single track.");
    return true;
}

// Every track is searched, also one whose messages are not asked for: the search is what discards its old samples.
void decode_tracks(soundcomm_context_t* ctx, uint32_t track_count, internal_results* results)
{
    const bool both = results->decode_type == KOSC_DECODE_BOTH_TRACKS;
    const uint32_t wanted = results->decode_type == KOSC_DECODE_SECOND_TRACK ? 1 : 0;
    for (uint32_t t = 0; t < track_count; ++t) {
        if (both) {
            KOSC_LOG_DEBUG("try to decode %u.", t + 1);
        }
        result_slot_t* const slot = both ? &results->slot[t] : t == wanted ? &results->slot[0] : nullptr;
        decode_track(ctx, &ctx->rx_paras->track[t], slot);
    }
}

// The next piece: no more than fits every track's buffer.
uint32_t next_piece(const soundcomm_paras_t& paras, uint32_t remaining)
{
    uint32_t piece = remaining;
    for (uint32_t t = 0; t < paras.track_num; ++t) {
        piece = std::min(piece, data_container_unused(paras.track[t].container));
    }
    KOSC_LOG_DEBUG("Next piece is %d", piece);
    return piece;
}

// Starts the counts of a piece, and warns of slots that have no room for its messages.
void start_counts(uint32_t msg_len, internal_results* results)
{
    for (uint32_t i = 0; i < results->slot_count; ++i) {
        result_slot_t& slot = results->slot[i];
        if (slot.correct.buffer != nullptr && !has_room(slot.correct, msg_len)) {
            KOSC_LOG_WARN("No enough buffer(%u) to put result of track (%u)", slot.correct.room, i);
        }
        slot.correct.count = 0;
        slot.error.count = 0;
    }
}

// Buffers a piece, then searches and decodes; false with a message.
bool receive_piece(soundcomm_context_t* ctx, const int16_t* input, uint32_t piece, internal_results* results)
{
    const uint32_t track_count = ctx->rx_paras->track_num;
    if (piece == 0) {
        // Nothing was searched out of a full buffer, and nothing ever will be.
        reset_tracks(ctx->rx_paras, track_count);
    } else if (!process_recvd_data(ctx, track_count, input, piece)) {
        return false;
    }
    if (!check_decode_type(results->decode_type, track_count) || piece == 0) {
        return false;
    }
    decode_tracks(ctx, track_count, results);
    combine_piece(ctx, input, piece, &results->slot[0]);
    return true;
}

} // namespace

rx_sync_paras soundcomm_default_rx_sync_paras(void) { return {0.4, 20, 1}; }

audio_format_t soundcomm_default_audio_format(void) { return {2, 1, 48000}; }

uint32_t get_sound_track_num(uint32_t n) { return n; }

bool soundcomm_init_receive(soundcomm_context_t* ctx, rx_sync_paras sync_paras, audio_format_t format)
{
    KOSC_RETURN_IF(ctx == nullptr, false, "ctx is null");
    ctx->audio_format = format;
    ctx->rx_paras->rx_sync_paras = sync_paras;
    return init_receive_related(ctx, get_sound_track_num(format.track_num), format.sample_rate,
                                FRAMES_BUFFERED * ctx->rx_paras->frame.frame_length);
}

void soundcomm_set_frame_callback(soundcomm_context_t* ctx, frame_callback_t callback, void* user)
{
    if (ctx != nullptr) {
        ctx->rx_paras->frame_callback = callback;
        ctx->rx_paras->frame_callback_user = user;
    }
}

uint32_t soundcomm_decode_length(const soundcomm_context_t* ctx, uint32_t data_len)
{
    if (ctx == nullptr) {
        return 0;
    }
    const soundcomm_paras_t& paras = *ctx->rx_paras;
    const uint32_t at_once = paras.crowd != nullptr ? MOST_AT_ONCE : 1;
    return (data_len / paras.frame.frame_length + SPARE_MESSAGES) * at_once * paras.cfg.msg_byte_len;
}

uint32_t soundcomm_get_silence_around(const soundcomm_context_t* ctx)
{
    // A search window spans two frames, whatever fills it.
    return ctx == nullptr ? 0 : FRAMES_BUFFERED * ctx->rx_paras->frame.frame_length;
}

int soundcomm_receive(soundcomm_context_t* ctx, const int16_t* input, uint32_t data_len, result_set_t* results)
{
    KOSC_RETURN_IF(input == nullptr, -1, "input_data shouldn't be null");
    KOSC_RETURN_IF(ctx == nullptr || results == nullptr || ctx->rx_paras->track_num == 0, -1,
                   "receiver is not initialised");
    soundcomm_paras_t* const paras = ctx->rx_paras;
    const uint32_t track_count = paras->track_num;
    internal_results internal;
    if (!prepare_results(track_count, *results, &internal)) {
        return -1;
    }
    KOSC_LOG_DEBUG("Receive data_len %u", data_len);
    const uint64_t received_in_all = paras->received + data_len;
    begin_combined_block(*paras, data_len);
    for (uint32_t remaining = data_len; remaining > 0;) {
        start_counts(paras->cfg.msg_byte_len, &internal);
        const uint32_t piece = next_piece(*paras, remaining);
        if (!receive_piece(ctx, input, piece, &internal)) {
            paras->received = received_in_all; // what follows lies behind all that the caller handed over
            KOSC_LOG_ERROR("receive_data error");
            return -1;
        }
        deliver_counts(internal.slot[0], &results->correct, &results->error);
        if (internal.slot_count == 2) {
            deliver_counts(internal.slot[1], &results->second.correct, &results->second.error);
        }
        input += size_t{piece} * track_count;
        remaining -= piece;
    }
    return 0;
}

bool init_receive_related(soundcomm_context_t* ctx, uint32_t track_count, uint32_t sample_rate, uint32_t corr_capacity)
{
    KOSC_RETURN_IF(track_count == 0 || track_count > KOSC_MAX_TRACKS, false, "Invalid track count %u", track_count);
    soundcomm_paras_t* const paras = ctx->rx_paras;
    release_receive_tracks(paras);
    const pass_band band = receive_band(paras->cfg.ofdm_cfg, sample_rate);
    KOSC_LOG_DEBUG("filter freq %f %f", band.low, band.high);
    for (uint32_t t = 0; t < track_count; ++t) {
        paras->track[t].filter = create_receive_filter(band, sample_rate);
        KOSC_RETURN_IF(paras->track[t].filter == nullptr, false, "Create bwbp failed.");
    }
    if (!filter_is_stable(paras->track[0].filter)) {
        KOSC_LOG_WARN("filter freq %f %f: this filter is unstable, reception will fail", band.low, band.high);
    }
    for (uint32_t t = 0; t < track_count; ++t) {
        if (!init_receive_track(paras, &paras->track[t], corr_capacity)) {
            return false;
        }
    }
    paras->track_num = track_count;
    paras->received = 0;
    prepare_crowd(paras); // else reception goes on without
    return true;
}

bool process_recvd_data(soundcomm_context_t* ctx, uint32_t track_count, const int16_t* input, uint32_t piece)
{
    soundcomm_paras_t* const paras = ctx->rx_paras;
    paras->received += piece;
    for (uint32_t t = 0; t < track_count; ++t) {
        data_container* const container = paras->track[t].container;
        if (!data_container_check_buff_length(container, piece)) {
            KOSC_LOG_ERROR("%s failed %d.", "process_recvd_data", t);
            reset_tracks(paras, track_count);
            return false;
        }
        data_container_recv_block(container, input + t, track_count, piece);
    }
    return true;
}
