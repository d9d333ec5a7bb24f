/**
 * @file
 * One channel's sample buffer, and the search for frame starts in it.
 *
 * Four aligned histories are kept: raw samples, band-pass filtered samples, their running energy, and the normalised
 * correlation with the filtered synchronisation pilot. Correlation position k stands for the `corr_len` filtered
 * samples that end at the k-th received one. A pass over new samples is: data_container_check_buff_length(),
 * data_container_recv() for each, then data_container_begin(), and while not sync_iter_is_end(): data_container_get(),
 * decode, sync_iter_update_decode_state(), sync_iter_next(); at last data_container_rm_outdated(), sync_iter_free().
 */
#ifndef KOSC_SAMPLE_BUFFER_H
#define KOSC_SAMPLE_BUFFER_H

#include <stdbool.h>
#include <stdint.h>

#include "kosc/export.h"
#include "kosc/filter.h"
#include "kosc/growable_vector.h"

#ifdef __cplusplus
extern "C" {
#endif

/** `frame_start_in_corr` of an iterator at its end. */
#define KOSC_NO_FRAME UINT32_C(0xFFFFFFFF)

/** `decode_state` of an iterator. */
enum { KOSC_FRAME_DECODED = 1, KOSC_FRAME_NOT_DECODED = 2 };

/** Settings of the search. */
typedef struct rx_sync_paras {
    double peak_threshold;  /**< a correlation peak counts when strictly above this; 0.4 */
    uint32_t search_margin; /**< overlap of successive search windows in samples; 20 */
    uint32_t corr_step;     /**< the correlation is computed for every corr_step-th sample; 1 */
} rx_sync_paras;

struct data_container;
struct overlap_save;

/** Walks the frame starts of a container; embedded in it. */
typedef struct sync_iter {
    struct data_container* container; /**< the buffer that it is part of */
    uint32_t search_start;            /**< first correlation position of the search window */
    uint32_t frame_start_in_corr;     /**< correlation position of the frame's start, or KOSC_NO_FRAME */
    uint32_t decode_state;            /**< KOSC_FRAME_DECODED or KOSC_FRAME_NOT_DECODED */
} sync_iter;

/** The buffer of one channel. Owns its vectors and the filtered pilot, not the filter. */
typedef struct data_container {
    double peak_threshold;        /**< as in rx_sync_paras */
    uint32_t search_margin;       /**< as in rx_sync_paras */
    uint32_t corr_step;           /**< as in rx_sync_paras */
    butterworth_bandpass* filter; /**< the channel's filter; the caller's */
    vector* data;                 /**< raw samples, history_length more than correlation positions */
    vector* filtered_data;        /**< filtered samples, as many */
    vector* data_norm;            /**< energy of the newest corr_len - 1 filtered samples at each position */
    vector* corrcoef;             /**< normalised correlation at each position */
    double* pilot_filtered;       /**< corr_len doubles: the filtered pilot, scaled to unit norm */
    uint32_t corr_capacity;       /**< most correlation positions held */
    uint32_t frame_length;        /**< samples of a frame, and positions of a search window */
    uint32_t sync_length;         /**< the peak lies sync_length - 1 positions behind the frame's start */
    uint32_t search_step;         /**< frame_length - sync_length - search_margin, at least 1 */
    uint32_t history_length;      /**< corr_len - 1 */
    uint32_t corr_len;            /**< samples of the pilot that are correlated */
    sync_iter iter;               /**< the only walk at a time */
    uint32_t sample_phase;        /**< received samples modulo corr_step */
    uint32_t removed_length;      /**< positions removed from the front since creation or reset; wraps */
    struct overlap_save* engine;  /**< correlates whole blocks; owned, null for pilots of other than 1024 samples */
    uint32_t zero_run;            /**< consecutive zero samples received last */
    uint32_t kept;                /**< positions at the front that the receive driver's search has passed */
} data_container;

/**
 * Builds a buffer and fills its history with zeros.
 *
 * @param corr_capacity  correlation positions to hold; the receive driver takes two frames
 * @param frame_length   samples of a frame
 * @param sync_length    samples from the frame's start to the end of the synchronisation pilot's reference
 * @param sync_paras     search settings
 * @param pilot          corr_len samples of the pilot; read only here
 * @param corr_len       pilot samples to correlate
 * @param filter         the channel's filter, which must outlive the buffer; reset here
 * @return the buffer, for data_container_free(); null with ERROR "No enough memory to init sync handler", "Fail to
 * alloc pilot_filtered" or "pilot_norm should not be zero", and with ERROR "invalid sync handler paras" for a null
 *         pointer, a zero length or step, corr_capacity + corr_len above 2^24, or a pilot outside its frame
 */
KOSC_API data_container* data_container_init(uint32_t corr_capacity, uint32_t frame_length, uint32_t sync_length,
                                             rx_sync_paras sync_paras, const double* pilot, uint32_t corr_len,
                                             butterworth_bandpass* filter);

/** Frees a buffer; null is ignored. */
KOSC_API void data_container_free(data_container* container);

/**
 * Appends one raw sample and its correlation value; samples that no longer fit are dropped.
 *
 * @param container  from data_container_init()
 * @param sample     a 16-bit PCM value
 * @return false when the correlation could not be computed
 */
KOSC_API bool data_container_recv(data_container* container, double sample);

/**
 * Appends a block of samples, as data_container_recv() would one by one, some forty times faster for long blocks.
 *
 * Raw samples, filtered samples and energies are the same to the last bit, correlation values to 1e-9. Blocks that do
 * not fit, and containers whose corr_step or filter order is not the usual one, take the samples one by one.
 *
 * @param container  from data_container_init()
 * @param samples    16-bit PCM of one track
 * @param stride     distance of neighbours of the track in `samples`; the number of interleaved tracks
 * @param count      samples of the track
 * @return false when a correlation could not be computed
 */
KOSC_API bool data_container_recv_block(data_container* container, const int16_t* samples, uint32_t stride,
                                        uint32_t count);

/** Starts the embedded iterator at the front of the buffer and searches the first frame. */
KOSC_API sync_iter* data_container_begin(data_container* container);

/** True when there is no further frame. */
KOSC_API bool sync_iter_is_end(const sync_iter* iter);

/**
 * The `frame_length` raw samples of the current frame, valid until the next append or removal; null at the end, or when
 * they are not all there.
 */
KOSC_API const double* data_container_get(const sync_iter* iter);

/**
 * Start of the current frame, counted in samples since creation or reset; wraps at 2^32, which is 24.9 hours at 48 kHz.
 * Nothing else shows there: frames are found and decoded on. frame_report_t in receiver.h counts in 64 bits.
 */
KOSC_API uint32_t sync_iter_get_global_offset(const sync_iter* iter);

/** Stores whether the current frame decoded, which decides where the search goes on; ignored at the end. */
KOSC_API void sync_iter_update_decode_state(sync_iter* iter, uint32_t state);

/** Goes on behind a decoded frame, or by one search step, and searches the next frame. */
KOSC_API void sync_iter_next(sync_iter* iter);

/** Does nothing: the iterator is part of its container. */
KOSC_API void sync_iter_free(sync_iter* iter);

/** Removes from all histories what lies before the last search window. */
KOSC_API void data_container_rm_outdated(sync_iter* iter);

/**
 * True when the histories are aligned and `incoming_len` more samples fit; else logs at ERROR which check failed:
 * "corrcoef len(%u) should be same as data_norm (%u)", "data len(%u) should be bigger than corr_len(%u)", "data len(%u)
 * != corrcoef(%u) + corr_len(%u) -1" or "data len(%u) > unused (%u)".
 */
KOSC_API bool data_container_check_buff_length(const data_container* container, uint32_t incoming_len);

/** Samples that still fit. */
KOSC_API uint32_t data_container_unused(const data_container* container);

/** Correlation positions that fit in all. */
KOSC_API uint32_t data_container_capacity(const data_container* container);

/** Drops all samples, resets the filter and starts counting anew; allocates nothing. */
KOSC_API void data_container_reset(data_container* container);

#ifdef __cplusplus
}
#endif

#endif
