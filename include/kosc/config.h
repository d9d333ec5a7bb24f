/**
 * @file
 * The modem configuration: every parameter of the physical layer in one flat record.
 */
#ifndef KOSC_CONFIG_H
#define KOSC_CONFIG_H

#include <stdbool.h>
#include <stdint.h>

#include "kosc/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Where the CRCs go. */
enum { KOSC_CRC_AFTER_EVERY_PART = 0, KOSC_CRC_AT_LAST = 1 };

/** Channel codes. */
enum { KOSC_CODE_LINEAR = 0, KOSC_CODE_CONV = 1 };

/** Means to lower the peak-to-average power ratio. */
enum { KOSC_PAPR_NONE = 0, KOSC_PAPR_SHORT_PATTERN = 1, KOSC_PAPR_DFT_SPREAD = 2, KOSC_PAPR_LONG_PATTERN = 3 };

/** The CRCs of a block. */
typedef struct crc_cfg {
    uint32_t bits;    /**< width of a CRC in bits; 16 */
    uint32_t group;   /**< equal parts of the message, each with its own CRC */
    uint32_t put_crc; /**< KOSC_CRC_AFTER_EVERY_PART or KOSC_CRC_AT_LAST; encoding supports only the latter */
} crc_cfg;

/** The block code. */
typedef struct linear_code_cfg {
    uint32_t n; /**< code word length in bits; only 8 is supported */
    uint32_t k; /**< data bits a code word; only 2 is supported */
} linear_code_cfg;

/** The convolutional code. */
typedef struct conv_code_cfg {
    uint32_t constraint;         /**< constraint length K, register bits including the current one */
    const uint32_t* polynomials; /**< generators, bit 0 taps the current input bit; shared by copies, never freed */
    uint32_t polynomial_num;     /**< number of generators, the inverse of the code rate */
} conv_code_cfg;

/** The channel code in use. */
typedef struct channel_code_cfg {
    uint32_t type; /**< KOSC_CODE_LINEAR or KOSC_CODE_CONV; says which arm counts */
    union {
        conv_code_cfg conv;
        linear_code_cfg linear;
    } paras; /**< the arm that `type` names */
} channel_code_cfg;

/** The block interleaver. */
typedef struct interleaver_cfg {
    uint32_t stride; /**< distance of bits that become neighbours */
} interleaver_cfg;

/** What maps bits to subcarrier values. */
typedef struct mod_cfg {
    uint32_t type; /**< 0: QPSK */
} mod_cfg;

/** The symbols. */
typedef struct ofdm_cfg {
    uint32_t symbol_len;   /**< FFT size in samples, a power of two */
    uint32_t cp_len;       /**< cyclic prefix in samples */
    uint32_t sc_start_idx; /**< first subcarrier in use */
    uint32_t sc_num;       /**< subcarriers in use */
    int32_t papr;          /**< KOSC_PAPR_..., 0 to 3 */
} ofdm_cfg;

/** The pilot symbols. */
typedef struct pilot_cfg {
    uint32_t pilot_type;      /**< 0: pilots fill every subcarrier in use */
    uint32_t data_pilot_rate; /**< data symbols a pilot symbol */
} pilot_cfg;

/** The fade at both ends of a symbol. */
typedef struct fade_cfg {
    uint32_t enable; /**< non-zero: the layout counts symbols as faded; samples are faded when it is exactly 1 */
    uint32_t len;    /**< fade length in samples; the receiver's FFT windows start this much early, faded or not */
} fade_cfg;

/**
 * The whole configuration; passed by value or copied wherever it is kept.
 *
 * soundcomm_init() refuses what it cannot lay out. Of what it takes, these encode and are never received:
 * - data_pilot_rate other than 2: the receiver uses one channel estimate for every two data symbols. Above 2 its
 *   decoding fails with ERROR "Fail to equalise.", at 1 estimates and symbols do not belong together.
 * - an interleaver stride longer than the coded block, with ERROR "Fail to deinterleaver.";
 * - subcarriers within some bins of 0 or half the sample rate, of which soundcomm_init_receive() warns;
 * - one or two subcarriers, whose pilot is too narrow to tell where a frame begins.
 *
 * These cannot even be encoded: a code type of neither arm, put_crc other than KOSC_CRC_AT_LAST, and a data_pilot_rate
 * with which the symbols end before the last pilot.
 */
typedef struct soundcomm_cfg_t {
    uint32_t msg_byte_len;                    /**< bytes a message; one frame carries one message */
    struct crc_cfg crc_cfg;                   /**< checks of the message */
    struct channel_code_cfg channel_code_cfg; /**< its protection */
    struct interleaver_cfg interleaver_cfg;   /**< its spreading over the frame */
    struct mod_cfg mod_cfg;                   /**< bits to subcarrier values */
    struct ofdm_cfg ofdm_cfg;                 /**< subcarrier values to symbols */
    struct pilot_cfg pilot_cfg;               /**< what the receiver knows beforehand */
    struct fade_cfg fade_cfg;                 /**< against clicks between symbols */
} soundcomm_cfg_t;

/** An audio stream's format. */
typedef struct audio_format_t {
    uint32_t sample_bytes; /**< bytes a sample; 2 */
    uint32_t track_num;    /**< interleaved tracks */
    uint32_t sample_rate;  /**< Hz */
} audio_format_t;

/**
 * The built-in configuration, used by ko_soundcommu_init() for both directions: 28-byte messages, two CRC-16, rate 1/3
 * convolutional code of constraint length 7, 64 subcarriers from bin 384 of 1024, long phase pattern, fade of 80.
 * Static and constant; copy it to change it.
 */
KOSC_API const soundcomm_cfg_t* soundcomm_default_cfg(void);

/**
 * True when nothing that is later divided by or allocated is zero: message length, CRC groups, interleaver stride,
 * symbol and prefix length, subcarriers, pilot rate, and the code lengths of the arm in use. Logs nothing.
 */
KOSC_API bool cfg_zero_length_check(soundcomm_cfg_t cfg);

#ifdef __cplusplus
}
#endif

#endif
