/**
 * @file
 * A bounded queue of doubles: cheap appends at the back, cheap removal from the front, always contiguous.
 */
#ifndef KOSC_GROWABLE_VECTOR_H
#define KOSC_GROWABLE_VECTOR_H

#include <stdbool.h>
#include <stdint.h>

#include "kosc/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/** The queue; made by vector_init(). */
typedef struct vector {
    double* storage;     /**< the block, `capacity` doubles */
    double* storage_end; /**< storage + capacity */
    uint32_t capacity;   /**< most elements it can hold, fixed at creation */
    uint32_t size;       /**< elements held */
    double* begin;       /**< first element held */
    double* end;         /**< behind the last element held */
} vector;

/** A new empty queue of `capacity` doubles, for vector_free(); null for capacity 0 or when memory is short. */
KOSC_API vector* vector_init(uint32_t capacity);

/** Frees a queue; null is ignored. */
KOSC_API void vector_free(vector* v);

/** Most elements it can hold; 0 for null. */
KOSC_API uint32_t vector_capacity(const vector* v);

/** Elements held; 0 for null. */
KOSC_API uint32_t vector_size(const vector* v);

/** Free places: capacity minus size. */
KOSC_API uint32_t vector_unused(const vector* v);

/**
 * `count` consecutive elements from `index` on; a negative index counts from the back (-1 is the last element).
 *
 * @return a pointer into the queue, valid until the next append or removal; null when `v` is null, the index is not
 *         that of an element, or fewer than `count` elements follow
 */
KOSC_API double* vector_view(const vector* v, int32_t index, uint32_t count);

/** The element at `index` (negative: from the back), 0.0 when there is none. */
KOSC_API double vector_at(const vector* v, int32_t index);

/** Writes the element at `index` (negative: from the back); false when there is none. */
KOSC_API bool vector_set(vector* v, int32_t index, double value);

/** The last element, 0.0 when empty. */
KOSC_API double vector_back(const vector* v);

/** Appends `value`; false, unchanged, when full. Moves the elements to the front of the block when its end is reached.
 */
KOSC_API bool vector_push_back(vector* v, double value);

/** Removes up to `n` elements from the front; returns how many. */
KOSC_API uint32_t vector_remove_front(vector* v, uint32_t n);

#ifdef __cplusplus
}
#endif

#endif
