/**
 * @file
 * The shape of a frame, derived from a configuration.
 */
#ifndef KOSC_FRAME_LAYOUT_H
#define KOSC_FRAME_LAYOUT_H

#include <stdbool.h>
#include <stdint.h>

#include "kosc/config.h"
#include "kosc/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Derived counts; in brackets those of the built-in configuration. */
typedef struct frame_struct_t {
    uint32_t bytes;            /**< message and CRC bytes (32) */
    uint32_t bits;             /**< message and CRC bits (256) */
    uint32_t re_num;           /**< QPSK symbols after channel coding (384) */
    uint32_t data_symbols;     /**< OFDM symbols with data (6) */
    uint32_t pilot_symbols;    /**< OFDM pilot symbols (3) */
    uint32_t symbols;          /**< OFDM symbols (9) */
    uint32_t frame_length;     /**< samples (11520) */
    uint32_t sync_pilot_index; /**< symbol index of the synchronisation pilot (1) */
    uint32_t
        len_before_sync; /**< samples from the start to the end of the synchronisation pilot, less the fade (2480) */
} frame_struct_t;

/**
 * Derives the layout of `cfg` into `fs`.
 *
 * @return false when a pointer is null, the configuration fails cfg_zero_length_check(), the frame is too long for
 *         32-bit counts (no message for these), or the QPSK symbols do not fill whole OFDM symbols (ERROR "RE num %u
 *         can't be divided by sc num %u"; the first three fields are written)
 */
KOSC_API bool init_frame_struct(const soundcomm_cfg_t* cfg, frame_struct_t* fs);

/** Samples in a frame of `cfg`; 0, after WARN "cfg error, can't get frame length.", when it has no layout. */
KOSC_API uint32_t soundcomm_get_frame_length_from_cfg(const soundcomm_cfg_t* cfg);

/**
 * True when symbol `symbol_index` of a frame is a pilot: symbol_index + rate/2 + 1 is a multiple of rate + 1. The first
 * such symbol is the synchronisation pilot, the later ones are estimating pilots.
 */
KOSC_API bool is_pilot_index(uint32_t data_pilot_rate, uint32_t symbol_index);

#ifdef __cplusplus
}
#endif

#endif
