/**
 * @file
 * A second look at frames that were found but failed their CRCs: slower and deeper than soundcomm_decode().
 *
 * The second look follows the sender's drift, estimates the channel from all pilots together, smoothed, and decodes
 * soft values; then it measures the channel anew by the decoded bits and decodes again. Its steps are in drift.h,
 * channel_smoother.h and soft_viterbi.h.
 *
 * It takes configurations with a convolutional code of constraint length 2 to 16 and at most 8 polynomials, on 2 to 512
 * subcarriers of symbols of at least 64 samples, with a prefix shorter than the symbol and a place for every pilot. A
 * frame with a single pilot tells no drift; its sender must keep still.
 *
 * A context has one work area for it: one call at a time may take a second look with a context, or receive with it
 * while the second look is on, though neither changes what the other calls read.
 *
 * Every attempt at a frame is one more chance of 2^-(CRC bits) that wrong bits pass: 2^-32 for the built-in
 * configuration. There are at most KOSC_MAX_ATTEMPTS attempts a frame; kosc/crowd.h allows more.
 * Decision-directed estimation: Proakis 2001, "Digital communications", chapter 10.
 */
#ifndef KOSC_SECOND_LOOK_H
#define KOSC_SECOND_LOOK_H

#include <stdbool.h>
#include <stdint.h>

#include "kosc/context.h"
#include "kosc/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Settings of soundcomm_config_second_look(). */
enum {
    KOSC_SECOND_LOOK_OFF = 0,
    KOSC_SECOND_LOOK_ON = 1,     /**< at frames that fail their CRCs */
    KOSC_SECOND_LOOK_MEASURE = 2 /**< also measures frames that decode at once, at the price of a second look */
};

/** Drifts that are tried, decodings under each, and their product. */
enum { KOSC_MAX_DRIFTS = 3, KOSC_MAX_PASSES = 3, KOSC_MAX_ATTEMPTS = 9 };

/** What was measured of the last frame. */
typedef struct frame_quality_t {
    bool needed;             /**< the frame failed its CRCs at first, and got a second look */
    bool decoded;            /**< its message was found, at first or in the second look */
    uint32_t attempts;       /**< decodings of the second look; 0: it had none, and the fields below are zero */
    double coherence;        /**< share of the pilots' energy that adds up, 0 to 1 */
    double drift_ppm;        /**< received frequencies over sent ones, in the middle of the frame, less 1 */
    double drift_change_ppm; /**< how much that changes from the frame's start to its end */
    double snr_db; /**< power of a subcarrier over what is not explained by channel and message; for frames that were
                      not decoded, of the pilots alone */
    double evm;    /**< error vector magnitude: root of unexplained over explained power of the data symbols */
} frame_quality_t;

/** A receiver's second look; its work area is made once. */
typedef struct second_look_t second_look_t;

/**
 * Switches the second look of a context's receiver.
 *
 * @param ctx     context
 * @param enable  KOSC_SECOND_LOOK_...; other values count as KOSC_SECOND_LOOK_ON
 * @return false when it cannot be switched on: `ctx` is null (ERROR "ctx is null"), memory is short or the
 *         configuration is not one of those above (WARN "no second look for this configuration"); decoding then goes on
 *         without
 */
KOSC_API bool soundcomm_config_second_look(soundcomm_context_t* ctx, uint32_t enable);

/**
 * Takes a second look at one frame. Allocates nothing; logs nothing but failed checks.
 *
 * @param ctx         context whose second look is switched on
 * @param input       samples from the found frame start on, at any scale
 * @param input_len   their number, at least frame_length
 * @param output      receives the message when every CRC matches; may be null
 * @param output_len  its size; below msg_byte_len nothing is copied
 * @param quality     receives what was measured; may be null
 * @return 1 when every CRC matches, 0 when not, KOSC_DECODE_FAILED with ERROR "ctx is null", "input is null",
 *         "input_len too short %d" or "second look is off"
 */
KOSC_API uint32_t soundcomm_decode_second_look(const soundcomm_context_t* ctx, const double* input, uint32_t input_len,
                                               uint8_t* output, uint32_t output_len, frame_quality_t* quality);

/** The last frame that a receiver decoded or rejected; all zero before the first, or when the second look is off. */
KOSC_API frame_quality_t soundcomm_get_frame_quality(const soundcomm_context_t* ctx);

/**
 * The data symbols of the last frame in a context's second look, equalised: drift, channel and phase pattern removed,
 * so that they lie around (+-1 +-j)/sqrt(2). Of a frame that was decoded the channel is that of all its symbols, else
 * that of the last attempt. May be called within a frame callback, where `quality.attempts` is not 0.
 * soundcomm_equalise() in decoder.h has those of the first look.
 *
 * @param ctx      context; null counts as one without second look
 * @param symbols  receives frame.re_num complex values in the order sent; null only counts
 * @param room     complex values that fit; when that is fewer, nothing is written
 * @return their number; 0 before the first second look, or when it is off. Allocates and logs nothing
 */
KOSC_API uint32_t soundcomm_get_equalised_symbols(const soundcomm_context_t* ctx, double* symbols, uint32_t room);

#ifdef __cplusplus
}
#endif

#endif
