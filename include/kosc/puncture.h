/**
 * @file
 * Puncturing: removes evenly spread code bits, and puts holes back in their places.
 *
 * Nothing is logged. Punctured convolutional codes: Cain, Clark and Geist 1979.
 */
#ifndef KOSC_PUNCTURE_H
#define KOSC_PUNCTURE_H

#include <stdbool.h>
#include <stdint.h>

#include "kosc/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/** The hole marker 0xFF: a code bit that carries no information. */
extern KOSC_API const uint8_t HOLE;

/** Which bits are removed: offset + j * step for j = 0, 1, ... below total_len. In brackets the built-in modem's. */
typedef struct punch_template_t {
    uint32_t total_len;   /**< bits before puncturing (786) */
    uint32_t kept_len;    /**< bits after puncturing (768) */
    uint32_t removed_len; /**< the difference (18) */
    uint32_t offset;      /**< first removed position, step / 2 (21) */
    uint32_t step;        /**< distance of removed positions (43) */
} punch_template_t;

/**
 * A template that cuts `total_len` bits to `kept_len`, for free_punch_template().
 *
 * @return null when there is nothing to remove, kept_len exceeds total_len, more than every second bit would go, or
 *         memory is short
 */
KOSC_API punch_template_t* get_punch_template(uint32_t total_len, uint32_t kept_len);

/** Frees a template; null is ignored. */
KOSC_API void free_punch_template(punch_template_t* t);

/**
 * Copies the kept bits of `in` to `out`. A short template can remove more than removed_len bits; the places of `out`
 * that are left over are zeroed.
 *
 * @return false when a pointer is null or a length is not the template's
 */
KOSC_API bool punch_code(const punch_template_t* t, const uint8_t* in, uint32_t in_len, uint8_t* out, uint32_t out_len);

/** Writes the hole marker over the removed bits of `buf`, keeping its length; false as for punch_code(). */
KOSC_API bool punch_code_inplace(const punch_template_t* t, uint8_t* buf, uint32_t len);

/** Undoes punch_code(): the kept bits in their old places, the hole marker between them; false as there. */
KOSC_API bool depunch_code(const punch_template_t* t, const uint8_t* in, uint32_t in_len, uint8_t* out,
                           uint32_t out_len);

/** The hole marker, 0xFF. */
KOSC_API uint8_t hole(void);

#ifdef __cplusplus
}
#endif

#endif
