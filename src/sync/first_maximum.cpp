#include "sync/first_maximum.h"

#include <algorithm>
#include <cmath>

namespace kosc {
namespace {

constexpr uint32_t LANES = 16;

// The comparison drops a NaN on its left.
inline double larger(double value, double highest) { return value > highest ? value : highest; }

} // namespace

uint32_t first_maximum(const double* values, uint32_t count)
{
    if (std::isnan(values[0])) {
        return 0;
    }
    double highest[LANES];
    std::fill_n(highest, LANES, values[0]);
    uint32_t i = 0;
    for (; i + LANES <= count; i += LANES) {
        for (uint32_t lane = 0; lane < LANES; ++lane) {
            highest[lane] = larger(values[i + lane], highest[lane]);
        }
    }
    for (; i < count; ++i) {
        highest[0] = larger(values[i], highest[0]);
    }
    const double maximum = *std::max_element(highest, highest + LANES);
    return static_cast<uint32_t>(std::find(values, values + count, maximum) - values);
}

} // namespace kosc
