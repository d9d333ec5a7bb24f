/**
 * @file
 * The modem context: all that one audio channel needs to encode and to decode frames.
 */
#ifndef KOSC_CONTEXT_H
#define KOSC_CONTEXT_H

#include <stdint.h>

#include "kosc/config.h"
#include "kosc/conv_code.h"
#include "kosc/export.h"
#include "kosc/frame_layout.h"
#include "kosc/papr.h"
#include "kosc/puncture.h"
#include "kosc/sample_buffer.h"
#include "kosc/vector.h"

#ifdef __cplusplus
extern "C" {
#endif

struct pruned_ifft;
struct frame_report_t;
struct combining_t;

/** Most interleaved tracks that a context can receive. */
enum { KOSC_MAX_TRACKS = 2 };

/** A pilot symbol; empty (all null) when the frame has none of its kind. */
typedef struct pilot_t {
    kom_vector_complex* sequence; /**< owned; sc_num subcarrier values */
    kom_vector* samples;          /**< owned; cp_len + symbol_len samples, prefix included, faded */
    const double* reference;      /**< symbol_len samples within `samples`, from cp_len less the fade on */
} pilot_t;

/** What one received track needs; null until soundcomm_init_receive(). */
typedef struct receive_track_t {
    butterworth_bandpass* filter; /**< owned */
    data_container* container;    /**< owned */
    uint8_t* decode_cache;        /**< owned; msg_byte_len bytes */
} receive_track_t;

/** A parameter set: one direction's configuration and everything built from it. */
typedef struct soundcomm_paras_t {
    soundcomm_cfg_t cfg;                    /**< a copy */
    frame_struct_t frame;                   /**< derived from `cfg` */
    pilot_t sync_pilot;                     /**< Zadoff-Chu root 1 */
    pilot_t estimating_pilot;               /**< Zadoff-Chu root 3; empty with a single pilot symbol */
    conv_code_t* conv_code;                 /**< owned; null with the block code */
    punch_template_t* punch_template;       /**< owned; null with the block code */
    struct phase_pattern* phase_pattern;    /**< owned; null for PAPR types 0 and 2 */
    uint32_t track_num;                     /**< received tracks; 0 until soundcomm_init_receive() */
    struct rx_sync_paras rx_sync_paras;     /**< search settings */
    receive_track_t track[KOSC_MAX_TRACKS]; /**< the first track_num are prepared */
    double* fade_window;                    /**< owned; 2 * fade_cfg.len doubles, null when fading is off */
    struct pruned_ifft* inverse;            /**< owned; modulates narrow bands of usual symbol lengths, else null */
    struct second_look_t* second_look;      /**< owned; null unless soundcomm_config_second_look() switched it on */
    void (*frame_callback)(const struct frame_report_t* report, void* user); /**< soundcomm_set_frame_callback() */
    void* frame_callback_user;                                               /**< handed to it */
    uint64_t received;             /**< samples a track since soundcomm_init_receive() */
    struct combining_t* combining; /**< owned, by two sets where they combine together; null unless
                                        soundcomm_config_combining() switched it on */
    struct crowd_t* crowd;         /**< owned; null unless soundcomm_config_crowd() switched it on */
} soundcomm_paras_t;

/** A modem context. */
typedef struct soundcomm_context_t {
    soundcomm_paras_t* tx_paras; /**< owned */
    soundcomm_paras_t* rx_paras; /**< owned */
    audio_format_t audio_format; /**< of the received audio */
} soundcomm_context_t;

/**
 * Builds a context from one configuration a direction; both are copied.
 *
 * @return the context, for soundcomm_release(); null, with ERROR messages that end in "Fail to init tx paras." or "Fail
 *         to init rx paras." (null records included), or ERROR "No enough memory to init."
 *
 * A parameter set fails with ERROR "some length in cfg is ZERO", "msg byte len %u is not divisible by groups %u", "fade
 * in and out length %u is too long", "No enough memory to init.", "Init frame struct failed", "Fail to Init PAPR
 * reduction context.", "Fail to init convolutional code." (after that of conv_code_init()), "Fail to init punch code.",
 * "Unsupported linear code paras n,k=%u,%u" or "Init pilot failed" (after "pilot map subcarries faild.", "pilot mod
 * ofdm symbol faild.", "init pilot with cp faild." and "init sync pilot failed." or "init estimating pilot failed.");
 * silently for an unknown PAPR type, or where there is no memory for the angles of type 3. "Init frame struct failed"
 * comes alone for a frame longer than 2^22 samples. PAPR type 3 serves up to 512 subcarriers. It does not fail for want
 * of memory for `fade_window`, `inverse` or the code's `viterbi64`, without which it works slower, nor for
 * do_fade_in_out().
 */
KOSC_API soundcomm_context_t* soundcomm_init(const soundcomm_cfg_t* tx_cfg, const soundcomm_cfg_t* rx_cfg);

/** Frees a context with everything that it owns; null is ignored. */
KOSC_API void soundcomm_release(soundcomm_context_t* ctx);

/** The transmit (0) or receive (1) parameter set, owned by the context; null for another number. */
KOSC_API soundcomm_paras_t* soundcomm_get_paras(const soundcomm_context_t* ctx, int which);

/** Samples in a frame of the parameter set; `paras` must not be null. */
KOSC_API uint32_t soundcomm_get_frame_length(const soundcomm_paras_t* paras);

/** The number of tracks to receive for `n` recorded ones: all of them. */
KOSC_API uint32_t get_sound_track_num(uint32_t n);

/** The sample buffer of a track (0 or 1), owned by the set; null before soundcomm_init_receive(). Nothing is checked.
 */
KOSC_API data_container* soundcomm_get_datacontainer(const soundcomm_paras_t* paras, int track);

#ifdef __cplusplus
}
#endif

#endif
