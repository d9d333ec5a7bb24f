/**
 * @file
 * How fast the sender's clock runs against the receiver's, from the pilots of a found frame.
 *
 * A sender that moves, or whose clock is fast, scales the time of a frame by 1 + e: every subcarrier shifts by e times
 * its frequency, and every symbol lies off its place. The search demodulates the pilots at a coarse grid of rates and
 * joins them under every fine rate and change of rate, keeping those under which the pilots' channel estimates,
 * smoothed, add up best. Rates whose pilots differ by a whole turn score nearly alike, so the best few are handed out.
 * Nothing is logged. Maximum-likelihood estimation over a grid: Rife and Boorstyn 1974, "Single-tone parameter
 * estimation from discrete-time observations".
 */
#ifndef KOSC_DRIFT_H
#define KOSC_DRIFT_H

#include <stdint.h>

#include "kosc/channel_smoother.h"
#include "kosc/context.h"
#include "kosc/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/** A drift under which a frame's pilots add up. */
typedef struct drift_t {
    double rate;        /**< received frequencies are 1 + rate times the sent ones, at the synchronisation pilot */
    double rate_change; /**< change of the rate with every received sample */
    double coherence;   /**< share of the pilots' energy that adds up: near 1 for a clean frame, near 0.1 for noise */
} drift_t;

/** Work area of a search. */
typedef struct drift_search_t drift_search_t;

/**
 * @param paras     receive parameters, which must outlive the search
 * @param smoother  for the frame's subcarriers and its cyclic prefix; must outlive the search
 * @return a search, for drift_search_free(); null when a pointer is null, symbols are shorter than 64 samples, the
 *         smoother is for another number of subcarriers, or memory is short
 */
KOSC_API drift_search_t* drift_search_init(const soundcomm_paras_t* paras, const channel_smoother_t* smoother);

/** Frees a search; null is ignored. */
KOSC_API void drift_search_free(drift_search_t* search);

/**
 * Finds the drifts that explain a frame best, within +-4200 ppm and +-1500 ppm of change over 11520 samples. The pilots
 * of a frame are compared with each other: one alone tells no drift, which then counts as none.
 *
 * @param search     from drift_search_init()
 * @param frame      frame_length samples, as found by the synchronisation search
 * @param found      receives up to `max_found` of them, the most coherent first
 * @param max_found  room in `found`
 * @return their number, at least 1 for max_found >= 1
 */
KOSC_API uint32_t drift_search_find(drift_search_t* search, const double* frame, drift_t* found, uint32_t max_found);

#ifdef __cplusplus
}
#endif

#endif
