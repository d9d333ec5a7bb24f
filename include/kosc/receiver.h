/**
 * @file
 * The receive driver: blocks of interleaved 16-bit PCM in, messages and counts out.
 */
#ifndef KOSC_RECEIVER_H
#define KOSC_RECEIVER_H

#include <stdbool.h>
#include <stdint.h>

#include "kosc/combining.h"
#include "kosc/config.h"
#include "kosc/context.h"
#include "kosc/export.h"
#include "kosc/second_look.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Which tracks are decoded into which result slots. */
enum { KOSC_DECODE_FIRST_TRACK = 0, KOSC_DECODE_SECOND_TRACK = 1, KOSC_DECODE_BOTH_TRACKS = 2, KOSC_DECODE_MERGE = 3 };

/** A store of messages, back to back. */
typedef struct result_part_t {
    uint8_t* buffer; /**< the caller's; null: count only */
    uint32_t room;   /**< its size in bytes */
    uint32_t count;  /**< frames; may exceed what there was room for */
} result_part_t;

/** What one track yields. */
typedef struct result_slot_t {
    result_part_t correct; /**< frames whose CRCs match */
    result_part_t error;   /**< frames that were found but rejected */
} result_slot_t;

/** Result set of soundcomm_receive(). */
typedef struct result_set_t {
    uint32_t decode_type;  /**< KOSC_DECODE_... */
    result_part_t correct; /**< first slot */
    result_part_t error;   /**< first slot */
    result_slot_t second;  /**< second slot; read and written only for KOSC_DECODE_BOTH_TRACKS */
} result_set_t;

/** A frame that a receiver found. */
typedef struct frame_report_t {
    uint64_t sample;                   /**< its first sample, of all that soundcomm_receive() was handed since
                                            soundcomm_init_receive(), processed or not; does not wrap */
    uint32_t track;                    /**< 0 or 1 */
    uint32_t verdict;                  /**< 1 decoded, 0 a CRC does not match, KOSC_DECODE_FAILED */
    uint32_t failed_crcs;              /**< bit i: CRC i did not match in the first look; parts above 31 share bit 31 */
    uint32_t msg_len;                  /**< bytes of `msg` */
    const uint8_t* msg;                /**< the message; with verdict 0 what was read instead of it, else null */
    const double* samples;             /**< frame_length raw samples from its start on */
    double correlation;                /**< height of the synchronisation peak, up to 1 */
    frame_quality_t quality;           /**< all zero without a second look */
    const combined_report_t* combined; /**< null unless the message was put together (kosc/combining.h); then `sample`
                                            and `samples` are of the newest frame and may miss its start by some
                                            samples, and `correlation` and `quality` are zero */
} frame_report_t;

/** Called for each frame; report and what it points to are valid during the call. Must not call into the context. */
typedef void (*frame_callback_t)(const frame_report_t* report, void* user);

/** The built-in search settings: threshold 0.4, margin 20, every sample. */
KOSC_API rx_sync_paras soundcomm_default_rx_sync_paras(void);

/** The built-in audio format for playing and for each received channel: 2 bytes, 1 track, 48000 Hz. */
KOSC_API audio_format_t soundcomm_default_audio_format(void);

/**
 * Prepares a context for reception; replaces an earlier preparation.
 *
 * @param ctx         context
 * @param sync_paras  search settings
 * @param format      track_num (1 or 2) interleaved tracks at sample_rate Hz
 * @return false, with ERROR "ctx is null" or the message of init_receive_related()
 */
KOSC_API bool soundcomm_init_receive(soundcomm_context_t* ctx, rx_sync_paras sync_paras, audio_format_t format);

/**
 * Has every frame reported that soundcomm_receive() finds, decoded or not, for hosts that want to know where, how well,
 * or why not. Search windows overlap: a frame that does not decode may be reported twice, with the same `sample`.
 * Tracks that the decode type leaves out are searched but not decoded, and report nothing.
 *
 * @param ctx       context; null is ignored
 * @param callback  null: none, as after soundcomm_init()
 * @param user      handed to it
 */
KOSC_API void soundcomm_set_frame_callback(soundcomm_context_t* ctx, frame_callback_t callback, void* user);

/**
 * Bytes of room for the messages that `data_len` samples a track usually end: (data_len / frame_length + 2) messages; 0
 * for a null context. Frames that follow each other without a gap end no more often; those of a sender whose clock is
 * fast, or of two senders at once, can be one more in a long block, and are then counted but not stored. Where none may
 * be lost, leave room for (data_len / (frame_length / 2) + 2).
 */
KOSC_API uint32_t soundcomm_decode_length(const soundcomm_context_t* ctx, uint32_t data_len);

/**
 * Samples of silence that a host feeds before and again behind a recording, to each track: with them a frame is found
 * whose first samples the recording lacks, and one at its very end. Frame reports then count from the first silence.
 *
 * @param ctx  context
 * @return two frames; 0 for a null context
 */
KOSC_API uint32_t soundcomm_get_silence_around(const soundcomm_context_t* ctx);

/**
 * Listens to a block.
 *
 * @param ctx       prepared by soundcomm_init_receive()
 * @param input     data_len * track_num interleaved samples
 * @param data_len  samples a track; 0 does nothing
 * @param results   messages are written from each `buffer` on while they fit `room` (WARN "No enough buffer(%u) to put
 *                  result of track (%u)" when none fits), and counts are added; buffers and rooms are not advanced
 * @return 0, or -1 with ERROR "input_data shouldn't be null", "receiver is not initialised" (a null context or result
 *         set, or no soundcomm_init_receive()) or "Can't get dual results from a single track."; or with "receive_data
 *         error" behind WARN "reset recv buffs." (a full buffer in which no search window ends), the message of
 *         process_recvd_data(), or ERROR "Can't get the second track from a single track.", "MERGE not supportted yet."
 *         or "Unknow decode type, using the first track.". What was delivered before stays. Samples of such a call that
 *         were not received count in frame_report_t.sample all the same; what lies before them and is found only later
 *         is reported that much too late
 */
KOSC_API int soundcomm_receive(soundcomm_context_t* ctx, const int16_t* input, uint32_t data_len,
                               result_set_t* results);

/**
 * @name Steps
 * @{
 */

/**
 * Creates each track's band-pass filter (three bins below to two above the subcarriers), sample buffer and message
 * cache.
 *
 * @param ctx            context
 * @param track_count    1 or 2 interleaved tracks
 * @param sample_rate    Hz
 * @param corr_capacity  correlation positions to buffer; two frames in soundcomm_init_receive()
 * @return false with ERROR "Create bwbp failed.", "Fail to init dc." (after that of data_container_init()) or "Fail to
 *         malloc decode_cache.", or ERROR "Invalid track count %u" for other than 1 or 2 tracks; true with WARN "filter
 *         freq %f %f: this filter is unstable, reception will fail" for bands too close to 0 or half the sample
 * rate
 */
KOSC_API bool init_receive_related(soundcomm_context_t* ctx, uint32_t track_count, uint32_t sample_rate,
                                   uint32_t corr_capacity);

/**
 * Feeds `piece` samples a track into the sample buffers.
 *
 * @return false when they do not fit (ERROR "%s failed %d."); all tracks are reset then (WARN "reset recv buffs.")
 */
KOSC_API bool process_recvd_data(soundcomm_context_t* ctx, uint32_t track_count, const int16_t* input, uint32_t piece);

/**
 * Decodes one found frame and files its message and verdict in `slot`, advancing buffers and rooms.
 *
 * @param ctx    context
 * @param entry  track that the frame was found on; its cache holds the message meanwhile
 * @param slot   where the message goes
 * @param frame  frame_length samples
 * @return the verdict of soundcomm_decode()
 */
KOSC_API uint32_t do_decode(soundcomm_context_t* ctx, receive_track_t* entry, result_slot_t* slot, const double* frame);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
