// The correlation's inner loop for single positions.
#ifndef KOSC_SYNC_DOT_H
#define KOSC_SYNC_DOT_H

#include <cstdint>

namespace kosc {

// Sum of a[i] * b[i] over i < count.
double dot(const double* a, const double* b, uint32_t count);

} // namespace kosc

#endif
