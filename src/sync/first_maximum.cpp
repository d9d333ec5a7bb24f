#include "sync/first_maximum.h"

#include <algorithm>

namespace kosc {
namespace {

constexpr uint32_t LANES = 16;

} // namespace

uint32_t first_maximum(const double* values, uint32_t count)
{
    double highest[LANES];
    std::fill_n(highest, LANES, values[0]);
    uint32_t i = 0;
    for (; i + LANES <= count; i += LANES) {
        for (uint32_t lane = 0; lane < LANES; ++lane) {
            highest[lane] = values[i + lane] > highest[lane] ? values[i + lane] : highest[lane];
        }
    }
    const double maximum = std::max(*std::max_element(highest, highest + LANES),
                                    i < count ? *std::max_element(values + i, values + count) : values[0]);
    return static_cast<uint32_t>(std::find(values, values + count, maximum) - values);
}

} // namespace kosc
