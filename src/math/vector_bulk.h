// Appending many elements to a bounded queue at once.
#ifndef KOSC_MATH_VECTOR_BULK_H
#define KOSC_MATH_VECTOR_BULK_H

#include "kosc/growable_vector.h"

namespace kosc {

// Appends `count` elements, not set, and returns the first of them; null, unchanged, when they do not fit. Pointers
// into the queue are lost when its elements move to the front of the block.
double* vector_extend(vector* v, uint32_t count);

} // namespace kosc

#endif
