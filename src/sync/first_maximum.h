// The peak pick's inner loop.
#ifndef KOSC_SYNC_FIRST_MAXIMUM_H
#define KOSC_SYNC_FIRST_MAXIMUM_H

#include <cstdint>

namespace kosc {

// Index of the first maximum of `values`, of which there is at least one: values[i] > values[first] decides, so that a
// NaN is never above another value, nor is any above a NaN that comes first.
uint32_t first_maximum(const double* values, uint32_t count);

} // namespace kosc

#endif
