/**
 * @file
 * libkosc for hosts: calls that turn 28-byte messages into sound and sound into messages.
 *
 * Playing is 48000 Hz, 16 bit, mono; recording is 48000 Hz, 16 bit, two channels, which the host separates. The
 * library has no thread, file or device: everything happens inside these calls, on the caller's thread.
 *
 * Threads: handles share nothing but the logger, which has no lock: its level, callback and switches, and with the
 * load-time settings a buffer for the line and one for the time stamp. ko_soundcommu_register_log() takes the two
 * buffers out of use, and with `log_level` 0 nothing is logged. So call it, or set the level, before the threads start,
 * and change no setting of the logger while they run. Then these may run at the same time:
 * - calls with different handles;
 * - with one handle, any number of encode calls, one decode call of channel 0 and one of channel 1; its init, release
 *   and ko_soundcommu_config_...() each alone. With combining in mode 2 the
 *   decode calls of its two channels must not overlap either: the two are one receiver then.
 * Callbacks run on the thread of the call that causes them, so the log callback may run on several at once.
 */
#ifndef KOSC_KOSC_H
#define KOSC_KOSC_H

#include <stdint.h>

#include "kosc/bands.h"
#include "kosc/export.h"
#include "kosc/log.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Version of the interface described here; the library logs its own when a log callback is registered. */
#define KOSC_VERSION "1.1.0"

/** How to set up an audio device; filled by ko_soundcommu_get_audio_para(). */
typedef struct audio_para_t {
    uint32_t sample_rate; /**< samples per second: 48000 */
    uint32_t channel_num; /**< interleaved channels: 1 to play, 2 to record */
    uint32_t bit_depth;   /**< bits per sample: 16 */
    uint32_t frame_size;  /**< bytes of one encoded frame: 23040; written for playing only */
    uint32_t frame_bytes; /**< the same number; written for playing only */
    uint32_t aux_value;   /**< always 4; written for playing only */
} audio_para_t;

/** One received message; `msg` stays valid until the next decode call on its channel, or the release. */
typedef struct decode_result_t {
    const uint8_t* msg; /**< the message's bytes, owned by the handle */
    uint32_t len;       /**< number of bytes: 28 */
} decode_result_t;

/** Receives the messages of one decode call: `count` records, valid only during the call. */
typedef void (*recv_callback_t)(const decode_result_t* results, uint32_t count);

/**
 * Receives the messages of one decode call, as recv_callback_t does, and what tells handles and channels apart.
 *
 * @param results  `count` records, valid only during the call
 * @param count    at least 1
 * @param channel  the channel that was decoded, 0 or 1
 * @param user     what the options of ko_soundcommu_init_with() hold
 */
typedef void (*ko_soundcommu_receive_t)(const decode_result_t* results, uint32_t count, uint32_t channel, void* user);

/**
 * How ko_soundcommu_init_with() makes a handle. Filled by ko_soundcommu_default_options(), then changed by the host;
 * later versions add fields at the end.
 */
typedef struct ko_soundcommu_options_t {
    uint32_t size;                       /**< bytes of the record as the host was compiled with it */
    uint32_t first_subcarrier;           /**< of both directions, 6 to 438 (kosc/bands.h); default 384, 18 kHz */
    ko_soundcommu_receive_t on_messages; /**< of both channels; default null: messages are counted, not delivered */
    void* user;                          /**< handed to it; default null */
    uint32_t second_look;                /**< as of ko_soundcommu_config_second_look(); default 0 */
    uint32_t combining;                  /**< as of ko_soundcommu_config_combining(); default 0 */
    uint32_t crowd;                      /**< as of ko_soundcommu_config_crowd(); default 0, else needs second_look */
} ko_soundcommu_options_t;

/** A modem with one receiver for each of two recorded channels; its record is in kosc/handle.h. */
typedef struct soundcommu_handle_t soundcommu_handle_t;

/**
 * Tells how to play and to record. Needs no handle.
 *
 * @param play_para    filled whole
 * @param record_para  its first three fields are filled, the others stay as they are
 * @return 0, or -1 when a pointer is null (ERROR "play_para or record_para is NULL", nothing written) or the built-in
 *         configuration gives no frame (ERROR "get frame size failed.")
 */
KOSC_API int ko_soundcommu_get_audio_para(audio_para_t* play_para, audio_para_t* record_para);

/**
 * Routes log lines to `callback` (null: standard output) at level INFO, without time stamps, each line in a buffer of
 * its own; then logs the version at INFO. May be called at any time, any number of times.
 */
KOSC_API void ko_soundcommu_register_log(log_callback_t callback);

/**
 * Builds a handle.
 *
 * @param callback0  receives the messages found on channel 0
 * @param callback1  receives the messages found on channel 1
 * @return the handle, for ko_soundcommu_release(); null when a callback is null (ERROR "Recv callback is NULL."),
 *         memory is short (ERROR "No enough memory to alloc kosc") or a channel's context cannot be built (the
 *         messages of soundcomm_init() or soundcomm_init_receive(), then ERROR "Fail to init context.")
 */
KOSC_API soundcommu_handle_t* ko_soundcommu_init(recv_callback_t callback0, recv_callback_t callback1);

/**
 * Fills options with what ko_soundcommu_init() uses. So that library and host may be of different versions, the host
 * tells how large it knows the record to be:
 *
 *     ko_soundcommu_options_t options;
 *     ko_soundcommu_default_options(&options, sizeof options);
 *     options.on_messages = hear;
 *
 * @param options  filled up to `size`; null is ignored
 * @param size     bytes that `options` has room for, written into its `size`; ignored below 4. What the library does
 *                 not know is zeroed, and ko_soundcommu_init_with() then refuses it
 */
KOSC_API void ko_soundcommu_default_options(ko_soundcommu_options_t* options, uint32_t size);

/**
 * Builds a handle as ko_soundcommu_init() does, with a choice of band, one callback for both channels that knows its
 * user, and the second look on from the start. Fields behind `size`, of a host older than the library, have their
 * defaults.
 *
 * @param options  read during the call only
 * @return the handle, for ko_soundcommu_release(); null with ERROR "options is NULL", "options have size %u; fill them
 *         with ko_soundcommu_default_options()" (below 4), "options have size %u, but this library knows only %u bytes
 *         of them", the message of soundcomm_cfg_for_band(), or as ko_soundcommu_init() where memory is short, also
 *         for the second look (WARN "no second look for this configuration"), combining (as
 *         ko_soundcommu_config_combining()) or the crowd (as ko_soundcommu_config_crowd())
 */
KOSC_API soundcommu_handle_t* ko_soundcommu_init_with(const ko_soundcommu_options_t* options);

/** Frees a handle with everything that it owns; null is ignored. Must not be called from a receive callback. */
KOSC_API void ko_soundcommu_release(soundcommu_handle_t* handle);

/**
 * Turns one message into one frame of 16-bit mono PCM at 48000 Hz, peaking at 0.8 of full scale.
 *
 * @param handle         from ko_soundcommu_init() or ko_soundcommu_init_with(); not changed
 * @param msg            `msg_len` bytes
 * @param msg_len        28
 * @param encoded_frame  receives 11520 samples
 * @param frame_bytes    size of `encoded_frame` in bytes, 23040 (one more is accepted)
 * @return 0, or -1 with one of the ERROR messages "kosc is NULL", "msg is NULL", "Msg length %d %d invalid",
 *         "encoded_frame is NULL", "frame length %d invalid", "fail to malloc encode data", "soundcomm encode fail"
 *         (after those of soundcomm_encode()), "make audio failed", checked in this order
 */
KOSC_API int ko_soundcommu_encode(soundcommu_handle_t* handle, const uint8_t* msg, uint32_t msg_len,
                                  int16_t* encoded_frame, uint32_t frame_bytes);

/**
 * Listens to one block of one channel's samples; calls the channel's callback once, before returning, if messages
 * were decoded. A frame may straddle any number of blocks.
 *
 * @param handle    from ko_soundcommu_init() or ko_soundcommu_init_with()
 * @param data      samples of one channel (not interleaved), 48000 Hz
 * @param data_len  size of `data` in bytes: even, at least 2. Blocks of one size avoid re-sizing the result buffer
 * @param channel   0 or 1; the two are independent receivers
 * @return 0, also when nothing was found; -1 with one of the ERROR messages "kosc is NULL", "Invalid channel %d",
 *         "data is null.", "Invalid data len %d", "init result collector failed %d", "Fail to recv data", "Fail to
 *         alloc frame result". Messages that do not fit the result buffer are lost, with WARN "%d stored only %u of
 *         %u messages." and, for each part of the block that begins with a full buffer, WARN "No enough buffer(%u) to
 *         put result of track (%u)"; a frame whose decoding runs out of memory is lost alone, with the messages of
 *         soundcomm_decode()
 */
KOSC_API int ko_soundcommu_decode(soundcommu_handle_t* handle, const int16_t* data, int data_len, int channel);

/**
 * Switches the second look on (non-zero) or off (0, as after init) for both channels: frames that were found but do
 * not decode are decoded again with a better receiver, which needs about four decibels less signal and
 * follows senders who walk. What it recovers is delivered in its place among the other messages. Costs some
 * milliseconds for each frame that fails its CRCs, false alarms among them, within the decode call that found it;
 * frames that decode at once get no second look.
 *
 * @return 0, or -1 with ERROR "kosc is NULL" or, when memory is short, which leaves both channels without it, WARN "no
 *         second look for this configuration"
 */
KOSC_API int ko_soundcommu_config_second_look(soundcommu_handle_t* handle, uint32_t enable);

/**
 * Has the receivers add up repeats of a message, and both microphones: senders who repeat for some seconds are heard
 * from much deeper in the noise than any single frame (docs/link.md), through a search of its own. What is delivered
 * without stays as it is. A message that only the sum gives comes besides, about half a second after its last frame and
 * once in 12 seconds, behind the other messages of its decode call; ko_soundcommu_get_combined() tells which they are.
 *
 * In mode 2 the two channels are one receiver: sample n of channel 0 and sample n of channel 1, counted from this call
 * on, are the same moment. Feed the channels in turns, 0 before 1, blocks of the same duration; up to 0.2 s they are
 * searched together. A message comes by the decode call that completes it, on that call's channel, whichever microphone
 * heard it. A channel that is never fed, or no longer, costs the other nothing but a quarter of a second; fed late or
 * again, it is heard in step from then on.
 *
 * Costs about one percent of a processor core and 0.6 megabytes a channel. Messages that differ in little, as counters
 * do, may be mixed: kosc/combining.h has the safeguard and docs/link.md its measured rate.
 *
 * @param handle  from ko_soundcommu_init() or ko_soundcommu_init_with()
 * @param mode    0 off, as after init; 1 each channel alone; 2 both together. What was kept of earlier sound is
 * forgotten
 * @return 0; or -1, and the handle goes on without combining, with ERROR "kosc is NULL" (before any change), "unknown
 *         combining mode %u" or, when memory is short, WARN "no combining for this configuration"
 */
KOSC_API int ko_soundcommu_config_combining(soundcommu_handle_t* handle, uint32_t mode);

/** What a message was put together from; later versions add fields at the end. */
typedef struct ko_soundcommu_combined_t {
    uint32_t frames;      /**< sent frames that were summed; 1: one frame, found by the search for weak frames */
    uint32_t hearings;    /**< the same, each counted as often as microphones heard it */
    uint32_t microphones; /**< that heard some of them: 1 or 2 */
    uint32_t channels;    /**< which: bit 0 channel 0, bit 1 channel 1 */
    double snr_db; /**< signal-to-noise ratio of all of it together, in the band, where one frame needs about 0 */
    double newest_snr_db; /**< of the newest frame alone, by the microphone that heard it better */
    double seconds;       /**< from the first frame's start to the newest one's */
} ko_soundcommu_combined_t;

/**
 * Tells whether a message was put together by combining, and from what. May be called within the receive callback for
 * the messages that it was handed, and until the next decode call on that channel.
 *
 * @param handle    handle
 * @param channel   0 or 1
 * @param index     of the message among those of the channel's last decode call, from 0
 * @param combined  filled up to `size` when it was put together
 * @param size      sizeof(ko_soundcommu_combined_t); the rest of a larger record is zeroed
 * @return 1 when it was put together, 0 when it was delivered as without combining, -1 with ERROR "kosc is NULL",
 *         "Invalid channel %d", "combined is NULL" or "no message %u"
 */
KOSC_API int ko_soundcommu_get_combined(const soundcommu_handle_t* handle, int channel, uint32_t index,
                                        ko_soundcommu_combined_t* combined, uint32_t size);

/**
 * Prepares both channels for many senders that talk when they like, so that frames which overlap are all heard; needs
 * the second look. Messages that overlap come in the order in which they could be decoded; one that nothing covers
 * comes as early as without. The same message is delivered again when it starts at least half a frame from where it
 * was heard. kosc/crowd.h tells more, docs/hosts.md what many devices in a room should do.
 *
 * @param handle  from ko_soundcommu_init() or ko_soundcommu_init_with()
 * @param mode    0 off, as after init; 1 every peak of the synchronisation is tried; 2 and every decoded frame is taken
 *                out of the samples, so that those it covers are found. Some 900 KB a channel are allocated, of which
 *                half are kept when it is switched off
 * @return 0, or -1 with ERROR "kosc is NULL" or "crowd mode %u is none", which change nothing, or WARN "no crowd
 * without the second look" or, when memory is short, "no crowd for this configuration", which leave both channels
 *         without
 */
KOSC_API int ko_soundcommu_config_crowd(soundcommu_handle_t* handle, uint32_t mode);

#ifdef __cplusplus
}
#endif

#endif
