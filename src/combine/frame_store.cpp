#include "combine/frame_store.h"

#include <cmath>

#include "combine/frame_group.h"
#include "combine/known_messages.h"

namespace kosc {

void keep(const weak_frame& frame, frame_store* store)
{
    constexpr double COHERENCE_A_SECOND = 0.01;
    weak_frame* place = nullptr;
    double lowest = HUGE_VAL;
    for (uint32_t i = 0; i < store->count; ++i) {
        weak_frame& kept = store->frames[i];
        const double age = seconds_apart(frame.start, kept.start);
        kept.used = kept.used && age < KEPT_SECONDS;
        const double worth = kept.used ? kept.coherence - COHERENCE_A_SECOND * age : -HUGE_VAL;
        if (place == nullptr || worth < lowest) {
            lowest = worth;
            place = &kept;
        }
    }
    if (lowest < frame.coherence) {
        *place = frame;
    }
}

void drop_carriers(const float* sign, frame_store* store)
{
    for (uint32_t i = 0; i < store->count; ++i) {
        if (store->frames[i].used && carries(store->frames[i], sign)) {
            store->frames[i].used = false;
        }
    }
}

void drop_all(frame_store* store)
{
    for (uint32_t i = 0; i < store->count; ++i) {
        store->frames[i].used = false;
    }
}

} // namespace kosc
