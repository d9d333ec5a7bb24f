/**
 * @file
 * Fade in and out, so that the loudspeaker does not click at a symbol's ends.
 */
#ifndef KOSC_FADE_H
#define KOSC_FADE_H

#include <stdint.h>

#include "kosc/config.h"
#include "kosc/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Multiplies the first and the last F = fade.len of `len` samples by the halves of a Blackman window of 2F points.
 *
 * Nothing happens when `samples` is null, fade.enable is not exactly 1, or F exceeds `len`. When memory is short the
 * samples stay as they are, after WARN "Fail to do fade in out.".
 */
KOSC_API void do_fade_in_out(fade_cfg fade, double* samples, uint32_t len);

#ifdef __cplusplus
}
#endif

#endif
