#include "kosc/sample_buffer.h"

#include <algorithm>

#include "log/log_macros.h"
#include "sync/correlator.h"
#include "sync/first_maximum.h"
#include "sync/search_from.h"

using namespace kosc;

namespace {

constexpr uint32_t NO_PEAK = UINT32_MAX;

// Index of the first maximum of `values`, if it exceeds the threshold.
uint32_t pick_peak(const double* values, uint32_t count, double threshold)
{
    const uint32_t peak = first_maximum(values, count);
    KOSC_LOG_DEBUG("peak is %d, %f", peak, values[peak]);
    return threshold < values[peak] ? peak : NO_PEAK;
}

// With a corr_step of s only every s-th position was correlated: the true maximum lies at most s - 1 positions from the
// peak found. Computes the values between and picks the peak again.
uint32_t refine_peak(const data_container* c, uint32_t search_start, uint32_t peak)
{
    const int64_t centre = int64_t{search_start} + peak;
    const int64_t reach = int64_t{c->corr_step} - 1;
    const int64_t first = std::max(-reach, -centre); // no position before the buffer
    int64_t j = first;
    for (; j <= reach; ++j) {
        double value = 0.0;
        const auto position = static_cast<int32_t>(centre + j);
        if (j != 0 && !(correlate(c, position, &value) && vector_set(c->corrcoef, position, value))) {
            break;
        }
    }
    const auto count = static_cast<uint32_t>(j - first);
    const double* const values = vector_view(c->corrcoef, static_cast<int32_t>(centre + first), count);
    const uint32_t refined = values != nullptr && count > 0 ? pick_peak(values, count, c->peak_threshold) : NO_PEAK;
    return refined != NO_PEAK ? static_cast<uint32_t>(peak + first + refined) : peak;
}

// What follows a window: the next one, or the end of the search, with a frame or for lack of samples.
enum class search_step { MOVE_ON, STOP };

search_step search_window(sync_iter* iter)
{
    data_container* const c = iter->container;
    const double* const window = vector_view(c->corrcoef, static_cast<int32_t>(iter->search_start), c->frame_length);
    KOSC_RETURN_IF(window == nullptr, search_step::STOP, "No enough data, this should not happen.");
    uint32_t peak = pick_peak(window, c->frame_length, c->peak_threshold);
    if (peak == NO_PEAK) {
        return search_step::MOVE_ON;
    }
    if (c->corr_step != 1) {
        peak = refine_peak(c, iter->search_start, peak);
        KOSC_LOG_INFO("Adjacent peak_offset %u", peak);
    }
    // The frame starts sync_length - 1 samples before the peak, which lies at the end of the synchronisation pilot.
    // Refinement may move a peak to before its window: `peak` is then just below 2^32, and the sum wraps back.
    const auto frame_start = static_cast<int32_t>(iter->search_start + peak - (c->sync_length - 1));
    if (frame_start < 0) {
        KOSC_LOG_INFO("lost the data before sync %d, %d", iter->search_start, peak);
        return search_step::MOVE_ON;
    }
    if (int64_t{frame_start} + c->frame_length <= vector_size(c->corrcoef)) {
        iter->frame_start_in_corr = static_cast<uint32_t>(frame_start);
        iter->decode_state = KOSC_FRAME_NOT_DECODED;
    } else {
        KOSC_LOG_INFO("no enough data to decode %d %u", frame_start, vector_size(c->corrcoef));
    }
    return search_step::STOP;
}

void search(sync_iter* iter)
{
    data_container* const c = iter->container;
    iter->frame_start_in_corr = KOSC_NO_FRAME;
    KOSC_LOG_DEBUG("sync search next search_start: %d, corrcoef size: %d", iter->search_start,
                   vector_size(c->corrcoef));
    while (uint64_t{iter->search_start} + c->frame_length <= vector_size(c->corrcoef) &&
           search_window(iter) == search_step::MOVE_ON) {
        iter->search_start += c->search_step;
    }
    KOSC_LOG_DEBUG("after search seart_start: %d, frame_start_in_corr: %d", iter->search_start,
                   iter->frame_start_in_corr);
}

// Samples from a decoded frame's start to where the search goes on: search_margin before the frame's end, in case the
// next one starts early, but behind its peak by so much that refinement cannot return to that peak.
uint32_t decoded_step(const data_container* c)
{
    const uint32_t before_next = c->frame_length > c->search_margin ? c->frame_length - c->search_margin : 0;
    const uint32_t reach = std::min(c->corr_step - 1, c->frame_length);
    return std::max(before_next, c->sync_length + reach);
}

} // namespace

sync_iter* kosc::search_from(data_container* container, uint32_t search_start)
{
    sync_iter* const iter = &container->iter;
    *iter = {container, search_start, KOSC_NO_FRAME, KOSC_FRAME_NOT_DECODED};
    search(iter);
    return iter;
}

sync_iter* data_container_begin(data_container* container) { return search_from(container, 0); }

bool sync_iter_is_end(const sync_iter* iter) { return iter->frame_start_in_corr == KOSC_NO_FRAME; }

const double* data_container_get(const sync_iter* iter)
{
    if (sync_iter_is_end(iter)) {
        return nullptr;
    }
    const data_container* const c = iter->container;
    return vector_view(c->data, static_cast<int32_t>(iter->frame_start_in_corr + c->history_length), c->frame_length);
}

uint32_t sync_iter_get_global_offset(const sync_iter* iter)
{
    return iter->frame_start_in_corr + iter->container->removed_length;
}

void sync_iter_update_decode_state(sync_iter* iter, uint32_t state)
{
    if (!sync_iter_is_end(iter)) {
        iter->decode_state = state;
    }
}

void sync_iter_next(sync_iter* iter)
{
    const data_container* const c = iter->container;
    if (iter->decode_state == KOSC_FRAME_DECODED && !sync_iter_is_end(iter)) {
        iter->search_start = iter->frame_start_in_corr + decoded_step(c);
    } else {
        iter->search_start += c->search_step;
    }
    KOSC_LOG_DEBUG("Next search start is %d", iter->search_start);
    search(iter);
}

void sync_iter_free(sync_iter*) {}

void data_container_rm_outdated(sync_iter* iter)
{
    data_container* const c = iter->container;
    KOSC_LOG_DEBUG("removed_length: %d, search_start: %d", c->removed_length, iter->search_start);
    uint32_t n = iter->search_start;
    if (n > vector_size(c->corrcoef)) {
        KOSC_LOG_ERROR("remove data(%u) too long, %u, %u, %u, %u", n, vector_size(c->corrcoef),
                       vector_size(c->data_norm), vector_size(c->data), vector_size(c->filtered_data));
        n = vector_size(c->corrcoef);
    }
    for (vector* const history : {c->corrcoef, c->data_norm, c->data, c->filtered_data}) {
        vector_remove_front(history, n);
    }
    c->removed_length += iter->search_start;
}
