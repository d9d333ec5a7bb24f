/**
 * @file
 * From a frame's samples to 16-bit PCM.
 */
#ifndef KOSC_AUDIO_RENDER_H
#define KOSC_AUDIO_RENDER_H

#include <stdbool.h>
#include <stdint.h>

#include "kosc/config.h"
#include "kosc/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Gain of the rendering. */
typedef struct audio_gain_t {
    uint32_t normalize; /**< non-zero: scale the largest magnitude to full scale first */
    double amplitude;   /**< final factor */
} audio_gain_t;

/**
 * Scales, clips to 16 bits and truncates toward zero; a value that is not a number becomes 0.
 *
 * @param format   sample_bytes must be 2; the other fields are not used
 * @param gain     gain
 * @param samples  `count` doubles
 * @param count    samples to render
 * @param pcm      receives `count` samples
 * @return false, nothing written, with ERROR "input is null.", "output is null." or "Only 2 bytes (16bit) is
 *         supported."
 */
KOSC_API bool soundcomm_make_audio(audio_format_t format, audio_gain_t gain, const double* samples, uint32_t count,
                                   int16_t* pcm);

/** 32767 / peak * amplitude, with the largest magnitude of `count` samples as peak; infinite when all are zero. */
KOSC_API double calc_peak_scale(const double* samples, uint32_t count, double amplitude);

#ifdef __cplusplus
}
#endif

#endif
