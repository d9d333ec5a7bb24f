/**
 * @file
 * From a message to the samples of one frame.
 */
#ifndef KOSC_ENCODER_H
#define KOSC_ENCODER_H

#include <stdbool.h>
#include <stdint.h>

#include "kosc/context.h"
#include "kosc/export.h"
#include "kosc/vector.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Encodes one message into one frame.
 *
 * @param paras       transmit parameter set; not changed
 * @param input       the message
 * @param input_len   msg_byte_len bytes
 * @param output      receives frame_length samples, at any scale; elements behind them stay untouched
 * @param output_len  doubles in `output`, at least frame_length
 * @return 0, or -1 with the ERROR messages of check_encode_args() or the step that failed: "add_crc failed",
 *         "vector_byte_to_binary failed", "add_channel_code failed", "interleaver_encode failed", "qpsk_mod failed",
 *         "Fail to do PAPR reduction.", "FrameGenerate failed", which may leave a part of the frame in `output`; before
 *         them those of add_crc(), add_channel_code() and do_papr_reduction()
 */
KOSC_API int soundcomm_encode(const soundcomm_paras_t* paras, const uint8_t* input, uint32_t input_len, double* output,
                              uint32_t output_len);

/**
 * @name Steps, each returning a new owning vector or null
 * @{
 */

/**
 * The checks of soundcomm_encode(), first failing one wins: ERROR "soundcomm_context_t is NULL", "input is NULL",
 * "output is NULL", "output_len(%u) is less than frame_len(%u)", "input_len(%u) is not equal to msg_byte_len(%u)",
 * "Encode only support crc AT LAST".
 */
KOSC_API bool check_encode_args(const soundcomm_paras_t* paras, const uint8_t* input, uint32_t input_len,
                                const double* output, uint32_t output_len);

/** The message followed by its CRCs; null with ERROR "alloc crc buff failed" or "calulate crc failed". */
KOSC_API kom_vector_uint8* add_crc(const uint8_t* input, uint32_t input_len, const crc_cfg* cfg);

/** Code bits of `bits` with the set's channel code, punctured; null as add_conv_code(), or as encode82(). */
KOSC_API kom_vector_uint8* add_channel_code(const soundcomm_paras_t* paras, const kom_vector_uint8* bits);

/** Convolutional code and puncturing; null with ERROR "Fail to alloc msg." or "Punch code failed.", either perhaps
 * after that of conv_code_encode(). */
KOSC_API kom_vector_uint8* add_conv_code(const soundcomm_paras_t* paras, const kom_vector_uint8* bits);

/** PAPR reduction in place; false when the step fails, with ERROR "Unknown papr reduction type." for an unknown type.
 */
KOSC_API bool do_papr_reduction(const soundcomm_paras_t* paras, kom_vector_complex* qpsk);

/** DFT spreading symbol by symbol in place; false with ERROR "Data size %d can't be divided by sc num %d". */
KOSC_API bool dft_spread_frame(const soundcomm_paras_t* paras, kom_vector_complex* qpsk);

/**
 * Lays the QPSK values out as OFDM symbols with pilots, prefixes and fades: frame_length samples. Null, without a
 * message, when the values do not fill the data symbols or memory is short.
 */
KOSC_API kom_vector* FrameGenerate(const soundcomm_paras_t* paras, const kom_vector_complex* qpsk);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
