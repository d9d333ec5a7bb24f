// The frames of the last seconds that no message was made of yet.
#ifndef KOSC_COMBINE_FRAME_STORE_H
#define KOSC_COMBINE_FRAME_STORE_H

#include "combine/weak_frame.h"

namespace kosc {

struct frame_store {
    uint32_t count;
    weak_frame* frames; // count of them; those in use are marked
};

// Keeps a frame in the place of the oldest or least coherent one, unless it is worse than all.
void keep(const weak_frame& frame, frame_store* store);

// Forgets the kept frames that carry the block whose signs these are.
void drop_carriers(const float* sign, frame_store* store);

// Forgets all.
void drop_all(frame_store* store);

} // namespace kosc

#endif
