#include "sync/peaks.h"

#include <algorithm>

#include "math/simd.h"

namespace kosc {
namespace {

constexpr uint32_t STRETCH = 64; // positions that are passed over at once

bool is_greatest(const double* values, uint32_t size, uint32_t at)
{
    const uint32_t first = at > PEAK_REACH ? at - PEAK_REACH : 0;
    const uint32_t last = std::min(at + PEAK_REACH, size - 1);
    const double value = values[at];
    const bool above_earlier = std::all_of(values + first, values + at, [=](double v) { return v < value; });
    return above_earlier && std::all_of(values + at, values + last + 1, [=](double v) { return v <= value; });
}

// Whether a value of a stretch exceeds the threshold.
bool any_above(const double* values, double threshold)
{
    auto above = load_simd(values) > broadcast(threshold);
    for (uint32_t i = SIMD_LANES; i < STRETCH; i += SIMD_LANES) {
        above |= load_simd(values + i) > broadcast(threshold);
    }
    return (above[0] | above[1]) != 0;
}

} // namespace

uint32_t next_peak(const data_container& container, uint32_t from, uint32_t end)
{
    const uint32_t size = vector_size(container.corrcoef);
    const double* const values = container.corrcoef->begin;
    const uint32_t last = std::min(end, size);
    for (uint32_t at = from; at < last; ++at) {
        while (last - at > STRETCH && !any_above(values + at, container.peak_threshold)) {
            at += STRETCH;
        }
        if (values[at] > container.peak_threshold && is_greatest(values, size, at)) {
            return at;
        }
    }
    return NO_MORE_PEAKS;
}

} // namespace kosc
