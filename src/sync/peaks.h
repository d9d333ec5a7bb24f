// Every peak of the correlation, for rooms in which frames overlap.
#ifndef KOSC_SYNC_PEAKS_H
#define KOSC_SYNC_PEAKS_H

#include "kosc/sample_buffer.h"

namespace kosc {

// A peak is the greatest value within this many positions on either side: echoes of a pilot that are stronger than its
// first arrival still lie closer, and two senders' starts hardly ever do.
constexpr uint32_t PEAK_REACH = 192;

// What next_peak() returns behind the last one.
constexpr uint32_t NO_MORE_PEAKS = UINT32_MAX;

// The first correlation position from `from` on and before `end` that holds a peak above the threshold; of equal values
// the first counts. Neighbours that are not in the buffer count as lower.
uint32_t next_peak(const data_container& container, uint32_t from, uint32_t end);

} // namespace kosc

#endif
