/**
 * @file
 * Strided vectors of bytes, doubles and complex numbers: how every stage of the modem passes its data.
 *
 * A vector names `size` elements that lie `stride` elements apart, from `data` on. It either owns its block (made by an
 * `alloc` operation, freed by the family's `free`) or is a view, a record returned by value that borrows memory which
 * must outlive it and is never freed. A complex element is two adjacent doubles, real part first; strides and offsets
 * count whole elements. Element positions are unsigned 32-bit and wrap; an operation that copies refuses a run whose
 * last element, computed without wrapping, lies outside.
 *
 * Every operation accepts a null vector and a vector with null `data` and then does nothing. Nothing is logged.
 */
#ifndef KOSC_VECTOR_H
#define KOSC_VECTOR_H

#include <stdint.h>

#include "kosc/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Vector of bytes; in the channel coding one bit a byte. */
typedef struct kom_vector_uint8 {
    uint32_t owner;  /**< 1: record and block belong to this vector; 0: a view */
    uint32_t size;   /**< number of elements */
    uint32_t stride; /**< distance of neighbours, in elements */
    uint8_t* data;   /**< element 0; null in the all-zero record of a refused view */
} kom_vector_uint8;

/** Vector of doubles. */
typedef struct kom_vector {
    uint32_t owner;  /**< as in kom_vector_uint8 */
    uint32_t size;   /**< as in kom_vector_uint8 */
    uint32_t stride; /**< as in kom_vector_uint8 */
    double* data;    /**< as in kom_vector_uint8 */
} kom_vector;

/** Vector of complex numbers: element i is data[2*i*stride] + i*data[2*i*stride + 1]. */
typedef struct kom_vector_complex {
    uint32_t owner;  /**< as in kom_vector_uint8 */
    uint32_t size;   /**< as in kom_vector_uint8 */
    uint32_t stride; /**< as in kom_vector_uint8 */
    double* data;    /**< as in kom_vector_uint8, two doubles an element */
} kom_vector_complex;

/** A complex element by value. */
typedef struct kom_complex {
    double re; /**< real part */
    double im; /**< imaginary part */
} kom_complex;

/** @{ */
/** A new owning vector of `count` elements with stride 1, not cleared; null when memory is short. */
KOSC_API kom_vector_uint8* kom_vector_uint8_alloc(uint32_t count);
KOSC_API kom_vector* kom_vector_alloc(uint32_t count);
KOSC_API kom_vector_complex* kom_vector_complex_alloc(uint32_t count);
/** @} */

/** @{ */
/**
 * A new owning vector with element i = array[offset + i*stride], i < count. Null when `array` is null, `stride` or
 * `count` is 0, an element would lie at or behind `array_len`, or memory is short. Lengths count elements, for the
 * complex family pairs of doubles.
 */
KOSC_API kom_vector_uint8* kom_vector_uint8_alloc_from_array(const uint8_t* array, uint32_t array_len, uint32_t offset,
                                                             uint32_t stride, uint32_t count);
KOSC_API kom_vector* kom_vector_alloc_from_array(const double* array, uint32_t array_len, uint32_t offset,
                                                 uint32_t stride, uint32_t count);
KOSC_API kom_vector_complex* kom_vector_complex_alloc_from_array(const double* array, uint32_t array_len,
                                                                 uint32_t offset, uint32_t stride, uint32_t count);
/** @} */

/** @{ */
/**
 * A new owning vector with element i = element offset + i*stride of `src`, i < count. Note the order: count before
 * stride. Null as for alloc_from_array.
 */
KOSC_API kom_vector_uint8* kom_vector_uint8_alloc_from_vector(const kom_vector_uint8* src, uint32_t offset,
                                                              uint32_t count, uint32_t stride);
KOSC_API kom_vector* kom_vector_alloc_from_vector(const kom_vector* src, uint32_t offset, uint32_t count,
                                                  uint32_t stride);
KOSC_API kom_vector_complex* kom_vector_complex_alloc_from_vector(const kom_vector_complex* src, uint32_t offset,
                                                                  uint32_t count, uint32_t stride);
/** @} */

/** @{ */
/** Releases an owning vector; does nothing for a view or null. */
KOSC_API void kom_vector_uint8_free(kom_vector_uint8* v);
KOSC_API void kom_vector_free(kom_vector* v);
KOSC_API void kom_vector_complex_free(kom_vector_complex* v);
/** @} */

/** @{ */
/** Number of elements, 0 for null. */
KOSC_API uint32_t kom_vector_uint8_size(const kom_vector_uint8* v);
KOSC_API uint32_t kom_vector_size(const kom_vector* v);
KOSC_API uint32_t kom_vector_complex_size(const kom_vector_complex* v);
/** @} */

/** @{ */
/** Distance of neighbours in elements, 0 for null. */
KOSC_API uint32_t kom_vector_uint8_stride(const kom_vector_uint8* v);
KOSC_API uint32_t kom_vector_stride(const kom_vector* v);
KOSC_API uint32_t kom_vector_complex_stride(const kom_vector_complex* v);
/** @} */

/** @{ */
/** Address of element 0, owned by the vector; null for null. */
KOSC_API uint8_t* kom_vector_uint8_raw_ptr(const kom_vector_uint8* v);
KOSC_API double* kom_vector_raw_ptr(const kom_vector* v);
KOSC_API double* kom_vector_complex_raw_ptr(const kom_vector_complex* v);
/** @} */

/** @{ */
/** Element i; zero when there is none. */
KOSC_API uint8_t kom_vector_uint8_get(const kom_vector_uint8* v, uint32_t i);
KOSC_API double kom_vector_get(const kom_vector* v, uint32_t i);
KOSC_API kom_complex kom_vector_complex_get(const kom_vector_complex* v, uint32_t i);
/** @} */

/** @{ */
/** Writes element i; ignored when there is none. */
KOSC_API void kom_vector_uint8_set(kom_vector_uint8* v, uint32_t i, uint8_t value);
KOSC_API void kom_vector_set(kom_vector* v, uint32_t i, double value);
KOSC_API void kom_vector_complex_set(kom_vector_complex* v, uint32_t i, double re, double im);
/** @} */

/** @{ */
/**
 * Copies elements src_offset + i*src_stride of `src` to dst_offset + i*dst_stride of `dst`, i from 0 to count - 1 in
 * this order. Returns count; 0, and copies nothing, when a vector is null, a stride or `count` is 0, or an element
 * would lie outside.
 */
KOSC_API uint32_t kom_vector_uint8_set_by_vector(kom_vector_uint8* dst, uint32_t dst_offset, uint32_t dst_stride,
                                                 const kom_vector_uint8* src, uint32_t src_offset, uint32_t src_stride,
                                                 uint32_t count);
KOSC_API uint32_t kom_vector_set_by_vector(kom_vector* dst, uint32_t dst_offset, uint32_t dst_stride,
                                           const kom_vector* src, uint32_t src_offset, uint32_t src_stride,
                                           uint32_t count);
KOSC_API uint32_t kom_vector_complex_set_by_vector(kom_vector_complex* dst, uint32_t dst_offset, uint32_t dst_stride,
                                                   const kom_vector_complex* src, uint32_t src_offset,
                                                   uint32_t src_stride, uint32_t count);
/** @} */

/** @{ */
/** Zeroes every element. */
KOSC_API void kom_vector_uint8_set_zero(kom_vector_uint8* v);
KOSC_API void kom_vector_set_zero(kom_vector* v);
KOSC_API void kom_vector_complex_set_zero(kom_vector_complex* v);
/** @} */

/** @{ */
/** Reverses the order of the elements in place. */
KOSC_API void kom_vector_uint8_reverse(kom_vector_uint8* v);
KOSC_API void kom_vector_reverse(kom_vector* v);
KOSC_API void kom_vector_complex_reverse(kom_vector_complex* v);
/** @} */

/** @{ */
/**
 * A view of array[offset + i*stride], i < count. The all-zero record when `array` is null, `stride` is 0, or the last
 * element (for count 0: the offset) lies at or behind `array_len`; this one check is done in wrapping 32-bit
 * arithmetic. So a view can be had whose elements lie outside the array: those before the last one whenever
 * offset + (count - 1)*stride exceeds 2^32. Operations on such a view, copies too, check positions against its `size`
 * alone and read or write there; a caller that does not know its numbers to be small checks them first.
 */
KOSC_API kom_vector_uint8 kom_vector_uint8_const_view_array(const uint8_t* array, uint32_t array_len, uint32_t offset,
                                                            uint32_t stride, uint32_t count);
KOSC_API kom_vector kom_vector_const_view_array(const double* array, uint32_t array_len, uint32_t offset,
                                                uint32_t stride, uint32_t count);
KOSC_API kom_vector_complex kom_vector_complex_const_view_array(const double* array, uint32_t array_len,
                                                                uint32_t offset, uint32_t stride, uint32_t count);
/** @} */

/** @{ */
/** A view of elements offset + i*stride of `v`, i < count; refused like const_view_array. */
KOSC_API kom_vector_uint8 kom_vector_uint8_const_subvector(const kom_vector_uint8* v, uint32_t offset, uint32_t stride,
                                                           uint32_t count);
KOSC_API kom_vector kom_vector_const_subvector(const kom_vector* v, uint32_t offset, uint32_t stride, uint32_t count);
KOSC_API kom_vector_complex kom_vector_complex_const_subvector(const kom_vector_complex* v, uint32_t offset,
                                                               uint32_t stride, uint32_t count);
/** @} */

/** Conjugates every element in place; returns `v`. */
KOSC_API kom_vector_complex* kom_vector_complex_conj(kom_vector_complex* v);

/** The real parts as a new owning vector; null for a null or empty `v`, or when memory is short. */
KOSC_API kom_vector* kom_vector_complex_real(const kom_vector_complex* v);

/** The imaginary parts as a new owning vector; null as for kom_vector_complex_real(). */
KOSC_API kom_vector* kom_vector_complex_imag(const kom_vector_complex* v);

/** A new owning complex vector with the elements of `v` as real parts; null as for kom_vector_complex_real(). */
KOSC_API kom_vector_complex* kom_vector_complex_real_to_complex(const kom_vector* v);

/**
 * a[i] := a[i] / b[i], element by element. A zero divisor gives a non-finite element and is no failure.
 *
 * @return 0, or -1 when a vector or its data is null or the sizes differ (a unchanged)
 */
KOSC_API int32_t kom_vector_complex_div_inplace(kom_vector_complex* a, const kom_vector_complex* b);

#ifdef __cplusplus
}
#endif

#endif
