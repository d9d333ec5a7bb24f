// Changes to a sample buffer that the plain receiver never makes.
#ifndef KOSC_SYNC_SUBTRACT_H
#define KOSC_SYNC_SUBTRACT_H

#include "kosc/sample_buffer.h"

namespace kosc {

// Samples on the buffer's own time axis: samples[i] belongs to correlation position first + i. Those that lie outside
// the buffer are left out.
struct sample_run {
    int64_t first;
    uint32_t count;
    const double* samples;
};

// Takes a run out of everything that the buffer holds: raw samples; filtered ones, less the run filtered from rest,
// since the filter is linear; and from there on energies and correlation, computed anew. False where a corr_step other
// than 1, or a filter of an order that the receiver does not use, keeps that from being done.
bool subtract_run(data_container* container, const sample_run& run);

// Whether subtract_run() can be used with a buffer.
bool allows_subtraction(const data_container& container);

// Gives a buffer room for `capacity` correlation positions, with all that it holds. False, with nothing changed, when
// memory is short; a larger buffer stays as it is.
bool enlarge_buffer(data_container* container, uint32_t capacity);

// Removes the `count` oldest positions.
void remove_oldest(data_container* container, uint32_t count);

} // namespace kosc

#endif
