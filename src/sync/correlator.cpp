#include "sync/correlator.h"

#include "log/log_macros.h"
#include "sync/dot.h"
#include "sync/normalise.h"

using namespace kosc;

namespace {

// Below this many positions multiplying out costs less than a block of the overlap-save engine.
constexpr uint32_t MIN_RUN = 48;

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
    *value = dot(window, c->pilot_filtered, c->corr_len);
    normalise(value, energy, 1);
    return true;
}

void correlate_run(overlap_save* engine, const data_container* container, const double* windows, const double* energies,
                   uint32_t count, double* values)
{
    if (engine != nullptr && count >= MIN_RUN) {
        overlap_save_run(engine, windows, count, values);
    } else {
        for (uint32_t i = 0; i < count; ++i) {
            values[i] = dot(windows + i, container->pilot_filtered, container->corr_len);
        }
    }
    normalise(values, energies, count);
}

} // namespace kosc
