#include "rx/correlator.h"

#include <cmath>

#include "log/log_macros.h"

namespace {

// Below this energy a window counts as silence, and its correlation as zero.
constexpr double MIN_ENERGY = 1.0;

} // namespace

namespace kosc {

bool correlate(const data_container* c, int32_t position, double* value)
{
    if (position < 0) {
        KOSC_LOG_WARN("pos should > 0, %d", position);
        return false;
    }
    const double* const window = vector_view(c->filtered_data, position, c->corr_len);
    KOSC_RETURN_IF(window == nullptr, false, "get filter data failed %d %d", vector_size(c->filtered_data), position);
    const double* const energy = vector_view(c->data_norm, position, 1);
    KOSC_RETURN_IF(energy == nullptr, false, "get norm failed %d %d", vector_size(c->data_norm), position);
    double dot = 0.0;
    for (uint32_t i = 0; i < c->corr_len; ++i) {
        dot += window[i] * c->pilot_filtered[i];
    }
    *value = *energy >= MIN_ENERGY ? std::fabs(dot) / std::sqrt(*energy) : 0.0;
    return true;
}

} // namespace kosc
