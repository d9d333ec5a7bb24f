#include "sync/peaks.h"

#include <algorithm>

namespace kosc {
namespace {

bool is_greatest(const double* values, uint32_t size, uint32_t at)
{
    const uint32_t first = at > PEAK_REACH ? at - PEAK_REACH : 0;
    const uint32_t last = std::min(at + PEAK_REACH, size - 1);
    const double value = values[at];
    const bool above_earlier = std::all_of(values + first, values + at, [=](double v) { return v < value; });
    return above_earlier && std::all_of(values + at, values + last + 1, [=](double v) { return v <= value; });
}

} // namespace

uint32_t next_peak(const data_container& container, uint32_t from, uint32_t end)
{
    const uint32_t size = vector_size(container.corrcoef);
    const double* const values = container.corrcoef->begin;
    for (uint32_t at = from; at < std::min(end, size); ++at) {
        if (values[at] > container.peak_threshold && is_greatest(values, size, at)) {
            return at;
        }
    }
    return NO_MORE_PEAKS;
}

} // namespace kosc
