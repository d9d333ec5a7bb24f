#include "kosc/sample_buffer.h"

#include <algorithm>
#include <cmath>

#include "log/log_macros.h"
#include "math/vector_bulk.h"
#include "platform/owned.h"
#include "sync/band_filter.h"
#include "sync/correlator.h"

using namespace kosc;

namespace {

constexpr uint32_t MAX_HISTORY = uint32_t{1} << 24;

using container_ptr = owned<data_container, data_container_free>;

// Samples by which the search moves on after a window without a frame. Layouts that are too short for the margin, or
// for any step, still get one of at least 1 that passes over no frame whose peak lies behind the window.
uint32_t find_search_step(uint32_t frame_length, uint32_t sync_length, uint32_t margin)
{
    const uint32_t behind_sync = frame_length - sync_length;
    return behind_sync > margin ? behind_sync - margin : std::max(behind_sync, uint32_t{1});
}

// Fills the history, so that the first sample already completes a window.
void fill_history(data_container* c)
{
    for (uint32_t i = 0; i < c->history_length; ++i) {
        vector_push_back(c->data, 0.0);
        vector_push_back(c->filtered_data, butterworth_bandpass_filter(c->filter, 0.0));
    }
}

bool make_histories(data_container* c)
{
    c->data = vector_init(c->corr_capacity + c->history_length);
    c->filtered_data = vector_init(c->corr_capacity + c->history_length);
    c->data_norm = vector_init(c->corr_capacity);
    c->corrcoef = vector_init(c->corr_capacity);
    return c->data != nullptr && c->filtered_data != nullptr && c->data_norm != nullptr && c->corrcoef != nullptr;
}

// The matched filter's pattern: the pilot, filtered as received samples are and scaled to unit norm; null when it has
// no energy or no memory. The filter delays both alike, so that the peak lies where the pilot ends. With unit norm the
// correlation |sum of y*p| / sqrt(E) is at most 1 (Cauchy and Schwarz), but for the one sample that E lacks.
// Source: North 1943, "An analysis of the factors which determine signal/noise discrimination in pulsed-carrier
// systems".
double* filter_pilot(butterworth_bandpass* filter, const double* pilot, uint32_t corr_len)
{
    block_ptr<double> filtered{alloc_zeroed<double>(corr_len)};
    KOSC_RETURN_IF(!filtered, nullptr, "Fail to alloc pilot_filtered");
    double energy = 0.0;
    for (uint32_t i = 0; i < corr_len; ++i) {
        filtered[i] = butterworth_bandpass_filter(filter, pilot[i]);
        energy += filtered[i] * filtered[i];
    }
    butterworth_bandpass_reset_buffer(filter);
    const double pilot_norm = std::sqrt(energy);
    KOSC_RETURN_IF(pilot_norm == 0.0, nullptr, "pilot_norm should not be zero");
    for (uint32_t i = 0; i < corr_len; ++i) {
        filtered[i] /= pilot_norm;
    }
    return filtered.release();
}

bool histories_are_aligned(const data_container* c)
{
    const uint32_t positions = vector_size(c->corrcoef);
    return vector_size(c->data_norm) == positions && vector_size(c->data) == positions + c->history_length &&
           vector_size(c->filtered_data) == vector_size(c->data);
}

// Appends a run that fits to aligned histories, each stage over the whole run.
void append_run(data_container* c, const pcm_run& run)
{
    const uint32_t first = vector_size(c->corrcoef);
    const double energy_before = vector_back(c->data_norm);
    double* const raw = vector_extend(c->data, run.count);
    double* const filtered = vector_extend(c->filtered_data, run.count);
    double* const energy = vector_extend(c->data_norm, run.count);
    double* const values = vector_extend(c->corrcoef, run.count);
    const double* const windows = c->filtered_data->begin + first;
    filter_run(c->filter, run, energy_before, {raw, filtered, energy, windows}, &c->zero_run);
    correlate_run(c->engine, c, windows, energy, run.count, values);
}

} // namespace

data_container* data_container_init(uint32_t corr_capacity, uint32_t frame_length, uint32_t sync_length,
                                    rx_sync_paras sync_paras, const double* pilot, uint32_t corr_len,
                                    butterworth_bandpass* filter)
{
    // Positions are passed on as signed numbers; longer histories than this would only be overcommitted.
    const bool usable = corr_capacity != 0 && corr_len != 0 && sync_paras.corr_step != 0 && sync_length != 0 &&
                        sync_length <= frame_length && uint64_t{corr_capacity} + corr_len <= MAX_HISTORY &&
                        frame_length <= INT32_MAX && pilot != nullptr && filter != nullptr;
    KOSC_RETURN_IF(!usable, nullptr, "invalid sync handler paras");
    container_ptr c{alloc_record<data_container>()};
    KOSC_RETURN_IF(!c, nullptr, "No enough memory to init sync handler");
    c->peak_threshold = sync_paras.peak_threshold;
    c->search_margin = sync_paras.search_margin;
    c->corr_step = sync_paras.corr_step;
    c->filter = filter;
    c->corr_capacity = corr_capacity;
    c->frame_length = frame_length;
    c->sync_length = sync_length;
    c->search_step = find_search_step(frame_length, sync_length, sync_paras.search_margin);
    c->corr_len = corr_len;
    c->history_length = corr_len - 1;
    KOSC_RETURN_IF(!make_histories(c.get()), nullptr, "No enough memory to init sync handler");
    fill_history(c.get());
    c->pilot_filtered = filter_pilot(filter, pilot, corr_len);
    if (c->pilot_filtered == nullptr) {
        return nullptr;
    }
    if (corr_len == PATTERN_LEN) {
        c->engine = overlap_save_init(c->pilot_filtered);
        KOSC_RETURN_IF(c->engine == nullptr, nullptr, "No enough memory to init sync handler");
    }
    return c.release();
}

void data_container_free(data_container* container)
{
    if (container != nullptr) {
        vector_free(container->data);
        vector_free(container->filtered_data);
        vector_free(container->data_norm);
        vector_free(container->corrcoef);
        std::free(container->pilot_filtered);
        overlap_save_free(container->engine);
        std::free(container);
    }
}

bool data_container_recv(data_container* container, double sample)
{
    const double y = butterworth_bandpass_filter(container->filter, sample);
    if (count_zero(sample == 0.0, &container->zero_run)) {
        flush_silence(container->filter);
    }
    vector_push_back(container->data, sample);
    vector_push_back(container->filtered_data, y);
    // The window's first sample, not the one that just left it: the energy is that of corr_len - 1 samples.
    const auto newest = static_cast<int32_t>(vector_size(container->filtered_data));
    const double old = vector_at(container->filtered_data, newest - static_cast<int32_t>(container->corr_len));
    vector_push_back(container->data_norm, y * y + vector_back(container->data_norm) - old * old);
    double value = 0.0;
    if (container->sample_phase == 0 &&
        !correlate(container, static_cast<int32_t>(vector_size(container->data_norm)) - 1, &value)) {
        return false;
    }
    vector_push_back(container->corrcoef, value);
    container->sample_phase = (container->sample_phase + 1) % container->corr_step;
    return true;
}

bool data_container_recv_block(data_container* container, const int16_t* samples, uint32_t stride, uint32_t count)
{
    const pcm_run run = {samples, stride, count};
    if (container->corr_step == 1 && suits_filter_run(container->filter) && histories_are_aligned(container) &&
        count != 0 && count <= data_container_unused(container)) {
        append_run(container, run);
        return true;
    }
    bool computed = true;
    for (size_t i = 0; i < count; ++i) {
        computed = data_container_recv(container, samples[i * stride]) && computed;
    }
    return computed;
}

bool data_container_check_buff_length(const data_container* container, uint32_t incoming_len)
{
    const uint32_t corr_size = vector_size(container->corrcoef);
    const uint32_t norm_size = vector_size(container->data_norm);
    const uint32_t data_size = vector_size(container->data);
    const uint32_t corr_len = container->corr_len;
    KOSC_RETURN_IF(corr_size != norm_size, false, "corrcoef len(%u) should be same as data_norm (%u)", corr_size,
                   norm_size);
    KOSC_RETURN_IF(data_size < corr_len - 1, false, "data len(%u) should be bigger than corr_len(%u)", data_size,
                   corr_len);
    KOSC_RETURN_IF(data_size != corr_size + corr_len - 1, false, "data len(%u) != corrcoef(%u) + corr_len(%u) -1",
                   data_size, corr_size, corr_len);
    const uint32_t unused = data_container_unused(container);
    KOSC_RETURN_IF(incoming_len > unused, false, "data len(%u) > unused (%u)", incoming_len, unused);
    return true;
}

uint32_t data_container_unused(const data_container* container) { return vector_unused(container->corrcoef); }

uint32_t data_container_capacity(const data_container* container) { return vector_capacity(container->corrcoef); }

void data_container_reset(data_container* container)
{
    // The blocks are kept: a receiver that goes on after an error need not allocate.
    for (vector* const history :
         {container->data, container->filtered_data, container->data_norm, container->corrcoef}) {
        vector_remove_front(history, vector_size(history));
    }
    butterworth_bandpass_reset_buffer(container->filter);
    container->removed_length = 0;
    container->zero_run = 0;
    container->kept = 0;
    fill_history(container);
}
