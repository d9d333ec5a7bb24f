// The correlation at one position of a sample buffer, for its appending and for the search that refines a peak.
#ifndef KOSC_RX_CORRELATOR_H
#define KOSC_RX_CORRELATOR_H

#include "kosc/sample_buffer.h"

namespace kosc {

// |dot(window, pilot)| / sqrt(energy) of the window at `position`, 0 in silence. False, with a message, when the
// position is negative or its window is not in the buffer.
bool correlate(const data_container* container, int32_t position, double* value);

} // namespace kosc

#endif
