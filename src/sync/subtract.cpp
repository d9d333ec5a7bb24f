#include "sync/subtract.h"

#include <algorithm>
#include <cmath>

#include "math/vector_bulk.h"
#include "platform/owned.h"
#include "sync/correlator.h"

namespace kosc {
namespace {

constexpr uint32_t MAX_DELAYS = 64; // of a filter

using vector_ptr = owned<vector, vector_free>;

// A queue with the same elements and more room; null when memory is short.
vector* larger_copy(const vector& from, uint32_t capacity)
{
    vector_ptr copy{vector_init(capacity)};
    if (copy) {
        std::copy(from.begin, from.end, vector_extend(copy.get(), from.size));
    }
    return copy.release();
}

void replace(vector** old, vector_ptr* with)
{
    vector_free(*old);
    *old = with->release();
}

// Whether a filter's delay line holds nothing that 16-bit samples would show.
bool has_settled(const double (&delays)[MAX_DELAYS])
{
    constexpr double NEGLIGIBLE = 1e-9;
    return std::all_of(delays, delays + MAX_DELAYS, [](double w) { return std::fabs(w) < NEGLIGIBLE; });
}

// Energies from position `first` up to `end`; that of the newest corr_len - 1 filtered samples at each. By recursion,
// E(n) = E(n - 1) + y(n)^2 - y(n - window)^2, which rounding may take below zero.
void sum_energies(const data_container& c, const double* filtered, uint32_t first, uint32_t end, double* energy)
{
    const int64_t window = c.history_length;
    double sum = 0.0;
    for (int64_t n = int64_t{first} - window; n < first; ++n) { // of the position before
        sum += filtered[n] * filtered[n];
    }
    for (int64_t n = first; n < end; ++n) {
        sum = std::max(filtered[n] * filtered[n] + sum - filtered[n - window] * filtered[n - window], 0.0);
        energy[n] = sum;
    }
}

} // namespace

bool allows_subtraction(const data_container& container)
{
    return container.corr_step == 1 && container.filter->nw <= MAX_DELAYS;
}

bool subtract_run(data_container* c, const sample_run& run)
{
    const uint32_t size = vector_size(c->corrcoef);
    const int64_t oldest = -static_cast<int64_t>(c->history_length);
    if (!allows_subtraction(*c) || run.first >= size) {
        return allows_subtraction(*c);
    }
    double* const raw = c->data->begin + c->history_length;
    double* const filtered = c->filtered_data->begin + c->history_length;
    double delays[MAX_DELAYS] = {};
    butterworth_bandpass at_rest = *c->filter;
    at_rest.w = delays;
    int64_t end = run.first;
    for (; end < size && (end - run.first < run.count || !has_settled(delays)); ++end) {
        const int64_t n = end;
        const double x = n - run.first < run.count ? run.samples[n - run.first] : 0.0;
        const double y = butterworth_bandpass_filter(&at_rest, x);
        if (n >= oldest) {
            raw[n] -= x;
            filtered[n] -= y;
        }
    }
    const auto first = static_cast<uint32_t>(std::max(run.first, int64_t{1}));
    // The oldest window lacks its first sample, which is not kept any more: position 0 keeps its values.
    double* const energy = c->data_norm->begin;
    const auto behind = static_cast<uint32_t>(std::clamp<int64_t>(end + c->history_length, first, size));
    sum_energies(*c, filtered, first, behind, energy);
    correlate_run(c->engine, c, filtered + first - c->history_length, energy + first, behind - first,
                  c->corrcoef->begin + first);
    return true;
}

bool enlarge_buffer(data_container* c, uint32_t capacity)
{
    if (capacity <= c->corr_capacity) {
        return true;
    }
    const uint32_t longer = capacity + c->history_length;
    vector_ptr data{larger_copy(*c->data, longer)};
    vector_ptr filtered{larger_copy(*c->filtered_data, longer)};
    vector_ptr energy{larger_copy(*c->data_norm, capacity)};
    vector_ptr corr{larger_copy(*c->corrcoef, capacity)};
    if (!data || !filtered || !energy || !corr) {
        return false;
    }
    replace(&c->data, &data);
    replace(&c->filtered_data, &filtered);
    replace(&c->data_norm, &energy);
    replace(&c->corrcoef, &corr);
    c->corr_capacity = capacity;
    return true;
}

void remove_oldest(data_container* c, uint32_t count)
{
    for (vector* const history : {c->corrcoef, c->data_norm, c->data, c->filtered_data}) {
        vector_remove_front(history, count);
    }
    c->removed_length += count;
}

} // namespace kosc
