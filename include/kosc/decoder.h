/**
 * @file
 * From the samples of one frame back to its message.
 */
#ifndef KOSC_DECODER_H
#define KOSC_DECODER_H

#include <stdbool.h>
#include <stdint.h>

#include "kosc/context.h"
#include "kosc/export.h"
#include "kosc/vector.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Result of soundcomm_decode() when a step failed. */
#define KOSC_DECODE_FAILED UINT32_C(0xFFFFFFFF)

/**
 * Decodes one frame.
 *
 * @param ctx             context; its receive parameter set is used, not changed
 * @param input           samples from the frame's start on, at any scale
 * @param input_len       their number, at least frame_length
 * @param correct_output  receives the message when every CRC matches; may be null
 * @param error_output    receives what was decoded when a CRC does not match; may be null
 * @param output_len      size of these buffers; below msg_byte_len nothing is copied
 * @return 1 when every CRC matches, 0 when one does not, KOSC_DECODE_FAILED when a step fails, with the ERROR message
 * of the step: "decode paras check failed.", "init_decode_content failed.", "ofdm_demode failed", "Fail to equalise.",
 * "Fail to restore papr reduction.", "Fail to qpsk demod.", "Fail to deinterleaver.", "Fail to channel decode.", "Fail
 * to bin2byte.", "Fail to calc and cmp crc.", "Fail to copy_decoded_msg."; before it that of init_decode_content() or
 * conv_code_decode_hard(), or ERROR "Fail to alloc subcarrier vector.", "Fail to ofdm_demod_real.", "depunched_len is
 * 0", "Depunch buf alloc failed.", "Depunch code failed.", "Conv Decode failed.", "Copy Conv decoded msg failed." or
 * "fail to alloc crc"
 */
KOSC_API uint32_t soundcomm_decode(const soundcomm_context_t* ctx, const double* input, uint32_t input_len,
                                   uint8_t* correct_output, uint8_t* error_output, uint32_t output_len);

/**
 * The data symbols of a frame as soundcomm_decode() judges them: divided by the channel of their pilot, with the PAPR
 * reduction undone.
 *
 * @param ctx        context; its receive parameter set is used, not changed
 * @param input      samples from the frame's start on, at any scale
 * @param input_len  their number, at least frame_length
 * @param symbols    receives frame.re_num complex values in the order sent, around (+-1 +-j)/sqrt(2)
 * @param room       complex values that fit
 * @return their number, or 0 with the messages of soundcomm_decode() up to "Fail to restore papr reduction.", or ERROR
 *         "no room for %u symbols"
 */
KOSC_API uint32_t soundcomm_equalise(const soundcomm_context_t* ctx, const double* input, uint32_t input_len,
                                     double* symbols, uint32_t room);

/**
 * @name Steps
 * @{
 */

/** Work record of one decoding; everything in it is owned. */
typedef struct decode_content_t {
    kom_vector_complex** sc_data;         /**< subcarrier values of each data symbol */
    kom_vector_complex** sc_pilot;        /**< subcarrier values, then channel estimate, of each pilot symbol */
    uint8_t* crc_result;                  /**< for each CRC, 1 when it matches */
    kom_vector_uint8* qpsk_bits;          /**< hard bits in the order of the subcarriers */
    kom_vector_uint8* deinterleaved_bits; /**< the same in the order of the code */
    kom_vector_uint8* decoded_bits;       /**< bits of message and CRCs */
    kom_vector_uint8* bytes;              /**< message and CRCs */
} decode_content_t;

/**
 * Clears `content` and allocates its arrays, to be freed by release_decode_content().
 *
 * @return false with ERROR "fail to allocate sc_data %d", "fail to allocate sc_pilot %d" (bytes) or "fail to allocate
 *         crc_result %d" (count)
 */
KOSC_API bool init_decode_content(const soundcomm_paras_t* paras, decode_content_t* content);

/** Frees what `content` owns, however far the decoding came, and clears it. */
KOSC_API void release_decode_content(const soundcomm_paras_t* paras, decode_content_t* content);

/**
 * Copies the message out of decoded bytes, leaving out CRCs that lie between its parts.
 *
 * @param paras       receive parameters
 * @param bytes       message and CRCs
 * @param output      receives msg_byte_len bytes
 * @param output_len  size of `output`
 * @return false when it does not fit, bytes are missing, or the CRC placement is unknown
 */
KOSC_API bool copy_decoded_msg(const soundcomm_paras_t* paras, const kom_vector_uint8* bytes, uint8_t* output,
                               uint32_t output_len);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
