/**
 * @file
 * Reception in a room where many senders talk at once: frames that overlap are all heard.
 *
 * The plain search takes the highest correlation of a window for the frame in it, and goes on behind what it decoded:
 * of two frames that overlap it delivers one at most. With a crowd expected, the receiver tries every peak, weighs the
 * symbols of a frame by how disturbed they are (an attempt more of the second look), and, from KOSC_CROWD_CANCEL on,
 * takes out of the samples what it received of each decoded frame and searches again what was covered: successive
 * interference cancellation (Verdu 1998, "Multiuser detection", chapter 7).
 *
 * What differs for a host: messages come in the order in which they could be decoded, which is not that of their starts
 * where frames overlap; the same message is delivered again only when it starts at least half a frame from where it was
 * heard; a frame that fails is reported once for each of its places, though it may be decoded later. A message that
 * nothing covers comes no later than without a crowd. At most KOSC_MAX_CROWD_ATTEMPTS decodings of the second look are
 * made each time that a frame is tried, instead of KOSC_MAX_ATTEMPTS; a frame is tried again only after samples under
 * it have changed. docs/link.md shows what is heard, docs/performance.md what it costs.
 *
 * The configuration must be one of the second look, without DFT spreading, with a frame that fits 2048 values at twice
 * the rate of its band, and a search of every sample.
 */
#ifndef KOSC_CROWD_H
#define KOSC_CROWD_H

#include <stdbool.h>
#include <stdint.h>

#include "kosc/context.h"
#include "kosc/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Settings of soundcomm_config_crowd(). */
enum {
    KOSC_CROWD_OFF = 0,
    KOSC_CROWD_PEAKS = 1, /**< every peak is tried */
    KOSC_CROWD_CANCEL = 2 /**< and what decoded is cancelled */
};

/** Most decodings that the second look makes of one found frame with a crowd: KOSC_MAX_PASSES more, with weights. */
enum { KOSC_MAX_CROWD_ATTEMPTS = 12 };

/** What a receiver did for its crowd since it was switched on; wraps at 2^32. */
typedef struct crowd_counts_t {
    uint32_t tried;     /**< peaks that were tried as a frame */
    uint32_t cancelled; /**< times that a frame was taken out of the samples, up to twice each, seldom more */
    uint32_t repeated;  /**< frames decoded again that were delivered before: echoes and what cancelling left */
} crowd_counts_t;

/** A receiver's crowd; its memory is made once. */
typedef struct crowd_t crowd_t;

/**
 * Switches the crowd of a context's receiver, before or after soundcomm_init_receive(). Enlarges the sample buffers,
 * which keep what they hold; they stay large when it is switched off. Allocates some 900 KB for one track, 450 KB more
 * for a second.
 *
 * @param ctx   context, with the second look on. When that is switched off later, peaks are still all tried, by the
 *              first look alone, and nothing is cancelled
 * @param mode  KOSC_CROWD_...
 * @return false with ERROR "ctx is null" or "crowd mode %u is none", which change nothing; or when it cannot be
 * switched on, which leaves it off: the second look is off (WARN "no crowd without the second look"), memory is short
 * or the configuration is not one of those above (WARN "no crowd for this configuration"). soundcomm_init_receive()
 * gives the last warning too, and switches off, where its search settings or memory leave no crowd
 */
KOSC_API bool soundcomm_config_crowd(soundcomm_context_t* ctx, uint32_t mode);

/** What the receiver did for its crowd; all zero when that is off, or `ctx` is null. */
KOSC_API crowd_counts_t soundcomm_get_crowd_counts(const soundcomm_context_t* ctx);

#ifdef __cplusplus
}
#endif

#endif
