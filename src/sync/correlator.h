// The normalised correlation with the filtered pilot: at one position, or at a run of them.
#ifndef KOSC_SYNC_CORRELATOR_H
#define KOSC_SYNC_CORRELATOR_H

#include "kosc/sample_buffer.h"
#include "sync/overlap_save.h"

namespace kosc {

// |dot(window, pilot)| / sqrt(energy) of the window at `position`, 0 in silence. False, with a message, when the
// position is negative or its window is not in the buffer.
bool correlate(const data_container* container, int32_t position, double* value);

// The same for `count` positions from one whose window starts at `windows`, with `energies` of their own. `engine` may
// be null: then every window is multiplied out.
void correlate_run(overlap_save* engine, const data_container* container, const double* windows, const double* energies,
                   uint32_t count, double* values);

} // namespace kosc

#endif
