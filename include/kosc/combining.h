/**
 * @file
 * Repeats of a message, and two microphones, added up.
 *
 * Frames too weak to decode alone are found by a search of their own, with all three pilots and at any drift, and kept
 * for some seconds as soft bits. Those that carry the same message, which the soft bits themselves tell, are summed and
 * decoded together (Chase 1985, "Code combining - a maximum-likelihood decoding approach for combining an arbitrary
 * number of noisy packets"; Brennan 1959, "Linear diversity combining techniques"). The receiver's own search, its
 * second look and what they deliver stay as they are; a message that only the sum gives comes besides, some half a
 * second after its last frame, once: it is not delivered where the same message was delivered within 12 s before, in
 * any way.
 *
 * Threads: KOSC_COMBINING_TOGETHER joins two contexts. From then on no two calls may run at the same time of which each
 * has one of them: soundcomm_receive(), soundcomm_config_combining(), soundcomm_release(). The other modes promise what
 * the receiver promises without.
 *
 * What is delivered has passed both CRCs, as without, but every attempt has a chance of 2^-32 to pass with wrong bits,
 * and one that got a half right of 2^-16. Besides, messages that differ in little may be taken for one: the sum of two
 * may hold the one's first half and the other's second, and both CRCs are right then. A sum is therefore refused where
 * its frames are far likelier to carry another half, or where another block with right CRCs is nearly as likely. These
 * are statistical checks: of 50026 groups at the limit of reach, whose messages were made to be alike, none was such a
 * mixture and one was wrong otherwise, which with 95 % confidence is fewer than one in 10,500 (docs/link.md). A host to
 * which a wrong message would be worse than none puts a check over the whole message into it, or leaves combining off.
 */
#ifndef KOSC_COMBINING_H
#define KOSC_COMBINING_H

#include <stdbool.h>
#include <stdint.h>

#include "kosc/context.h"
#include "kosc/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Modes of soundcomm_config_combining() and ko_soundcommu_config_combining(). */
enum {
    KOSC_COMBINING_OFF = 0,
    KOSC_COMBINING_EACH = 1,    /**< repeats heard by each channel alone */
    KOSC_COMBINING_TOGETHER = 2 /**< repeats heard by both channels, added up */
};

/** What a message was put together from. */
typedef struct combined_report_t {
    uint32_t frames;      /**< sent frames that were summed; 1: one frame, found by the search for weak frames */
    uint32_t hearings;    /**< the same, each counted as often as microphones heard it */
    uint32_t channels;    /**< bit c: channel c heard some of them */
    uint32_t attempts;    /**< decodings since the newest of them was found */
    double seconds;       /**< from the first frame's start to the newest one's */
    double snr_db;        /**< power of a subcarrier over the noise of all hearings together: what a single frame would
                               need to have for as much to be heard of it */
    double newest_snr_db; /**< of the newest frame alone, of the microphone that heard it better */
    double drift_ppm;     /**< of the newest frame, as in frame_quality_t */
} combined_report_t;

/** What a receiver's combining has done since it was switched on; with two channels together, of both. */
typedef struct combining_counts_t {
    uint64_t candidates; /**< places that sounded like pilots */
    uint64_t frames;     /**< of these, with pilots that add up under one drift */
    uint64_t attempts;   /**< decodings, each with a chance of 2^-32 to pass the CRCs with wrong bits */
    uint64_t refused;    /**< sums that passed both CRCs and were refused */
    uint64_t messages;   /**< delivered */
    uint64_t repeats;    /**< recovered, not delivered: the same message was within the last 12 s */
} combining_counts_t;

/** A receiver's combining; its memory is made once. */
typedef struct combiner_t combiner_t;

/**
 * Switches the combining of one receiver or two. What the receivers keep of earlier sound is forgotten, also by another
 * call with the same mode, and by soundcomm_init_receive().
 *
 * Messages are delivered as soundcomm_receive() delivers others: into its result set, behind the other messages of the
 * block, and as frame reports whose `combined` is not null. Two contexts together deliver within the call that
 * completes the message, whichever context that call has.
 *
 * With KOSC_COMBINING_TOGETHER, sample n of the one and sample n of the other, counted from this call on, are the same
 * moment. Feed them in turns, `first` before `second`, in blocks of the same duration; their sizes may differ and
 * change. Blocks of up to 0.2 s are searched on both channels together, longer ones on each, which finds a little
 * less. A channel that is never fed or no longer costs the other nothing but a quarter of a second. One that is fed
 * later, or again, goes on in step with the other as soon as it lies behind by more than a block and 0.7 s.
 *
 * @param first   context prepared by soundcomm_init_receive() for one track at 48000 Hz, with the built-in
 * configuration in any band
 * @param second  another one of the same band, which may be null except for KOSC_COMBINING_TOGETHER
 * @param mode    KOSC_COMBINING_...
 * @return false, and both go on without combining, with ERROR "ctx is null" (`first`, or a needed `second`), "unknown
 *         combining mode %u" or, when memory is short, a context is not prepared so or the two differ, WARN "no
 * combining for this configuration"
 */
KOSC_API bool soundcomm_config_combining(soundcomm_context_t* first, soundcomm_context_t* second, uint32_t mode);

/** What combining has done for a context so far; all zero for null, or where it is off. */
KOSC_API combining_counts_t soundcomm_get_combining_counts(const soundcomm_context_t* ctx);

#ifdef __cplusplus
}
#endif

#endif
