#include "kosc/vector.h"

#include <cmath>

#include "math/complex_ops.h"
#include "math/vector_family.h"

using namespace kosc;

// The exported functions of one family; `set` and `get` differ in how an element is passed and stand below.
// NOLINTBEGIN(bugprone-macro-parentheses): the arguments are types and parts of names.
#define KOSC_DEFINE_VECTOR_FAMILY(V, T, family)                                                                        \
    V* V##_alloc(uint32_t count) { return family::alloc(count); }                                                      \
                                                                                                                       \
    V* V##_alloc_from_array(const T* array, uint32_t array_len, uint32_t offset, uint32_t stride, uint32_t count)      \
    {                                                                                                                  \
        return family::alloc_from_array(array, array_len, offset, stride, count);                                      \
    }                                                                                                                  \
                                                                                                                       \
    V* V##_alloc_from_vector(const V* src, uint32_t offset, uint32_t count, uint32_t stride)                           \
    {                                                                                                                  \
        return family::alloc_from_vector(src, offset, count, stride);                                                  \
    }                                                                                                                  \
                                                                                                                       \
    void V##_free(V* v) { family::free(v); }                                                                           \
                                                                                                                       \
    uint32_t V##_size(const V* v) { return v != nullptr ? v->size : 0; }                                               \
                                                                                                                       \
    uint32_t V##_stride(const V* v) { return v != nullptr ? v->stride : 0; }                                           \
                                                                                                                       \
    T* V##_raw_ptr(const V* v) { return v != nullptr ? v->data : nullptr; }                                            \
                                                                                                                       \
    uint32_t V##_set_by_vector(V* dst, uint32_t dst_offset, uint32_t dst_stride, const V* src, uint32_t src_offset,    \
                               uint32_t src_stride, uint32_t count)                                                    \
    {                                                                                                                  \
        return family::set_by_vector(dst, dst_offset, dst_stride, src, src_offset, src_stride, count);                 \
    }                                                                                                                  \
                                                                                                                       \
    void V##_set_zero(V* v) { family::set_zero(v); }                                                                   \
                                                                                                                       \
    void V##_reverse(V* v) { family::reverse(v); }                                                                     \
                                                                                                                       \
    V V##_const_view_array(const T* array, uint32_t array_len, uint32_t offset, uint32_t stride, uint32_t count)       \
    {                                                                                                                  \
        return family::const_view_array(array, array_len, offset, stride, count);                                      \
    }                                                                                                                  \
                                                                                                                       \
    V V##_const_subvector(const V* v, uint32_t offset, uint32_t stride, uint32_t count)                                \
    {                                                                                                                  \
        return family::const_subvector(v, offset, stride, count);                                                      \
    }
// NOLINTEND(bugprone-macro-parentheses)

KOSC_DEFINE_VECTOR_FAMILY(kom_vector_uint8, uint8_t, uint8_family)
KOSC_DEFINE_VECTOR_FAMILY(kom_vector, double, double_family)
KOSC_DEFINE_VECTOR_FAMILY(kom_vector_complex, double, complex_family)

#undef KOSC_DEFINE_VECTOR_FAMILY

namespace {

// The real parts of `v`, or the imaginary ones when `part` is 1.
kom_vector* take_part(const kom_vector_complex* v, uint32_t part)
{
    if (v == nullptr || v->data == nullptr || v->size == 0) {
        return nullptr;
    }
    kom_vector* const parts = kom_vector_alloc(v->size);
    for (uint32_t i = 0; parts != nullptr && i < v->size; ++i) {
        parts->data[i] = complex_family::at(v, i)[part];
    }
    return parts;
}

} // namespace

namespace kosc {

kom_complex divide(kom_complex a, kom_complex b)
{
    const double s = 1.0 / std::hypot(b.re, b.im);
    const double u = b.re * s;
    const double w = b.im * s;
    return {(a.re * u + a.im * w) * s, (a.im * u - a.re * w) * s};
}

} // namespace kosc

uint8_t kom_vector_uint8_get(const kom_vector_uint8* v, uint32_t i)
{
    return uint8_family::has(v, i) ? *uint8_family::at(v, i) : uint8_t{0};
}

double kom_vector_get(const kom_vector* v, uint32_t i)
{
    return double_family::has(v, i) ? *double_family::at(v, i) : 0.0;
}

kom_complex kom_vector_complex_get(const kom_vector_complex* v, uint32_t i)
{
    return complex_family::has(v, i) ? load(complex_family::at(v, i), 0) : kom_complex{0.0, 0.0};
}

void kom_vector_uint8_set(kom_vector_uint8* v, uint32_t i, uint8_t value)
{
    if (uint8_family::has(v, i)) {
        *uint8_family::at(v, i) = value;
    }
}

void kom_vector_set(kom_vector* v, uint32_t i, double value)
{
    if (double_family::has(v, i)) {
        *double_family::at(v, i) = value;
    }
}

void kom_vector_complex_set(kom_vector_complex* v, uint32_t i, double re, double im)
{
    if (complex_family::has(v, i)) {
        store(complex_family::at(v, i), 0, {re, im});
    }
}

kom_vector_complex* kom_vector_complex_conj(kom_vector_complex* v)
{
    for (uint32_t i = 0; complex_family::has(v, i); ++i) {
        double* const element = complex_family::at(v, i);
        element[1] = -element[1];
    }
    return v;
}

kom_vector* kom_vector_complex_real(const kom_vector_complex* v) { return take_part(v, 0); }

kom_vector* kom_vector_complex_imag(const kom_vector_complex* v) { return take_part(v, 1); }

kom_vector_complex* kom_vector_complex_real_to_complex(const kom_vector* v)
{
    if (v == nullptr || v->data == nullptr || v->size == 0) {
        return nullptr;
    }
    kom_vector_complex* const z = kom_vector_complex_alloc(v->size);
    for (uint32_t i = 0; z != nullptr && i < v->size; ++i) {
        store(z->data, i, {*double_family::at(v, i), 0.0});
    }
    return z;
}

int32_t kom_vector_complex_div_inplace(kom_vector_complex* a, const kom_vector_complex* b)
{
    if (a == nullptr || b == nullptr || a->data == nullptr || b->data == nullptr || a->size != b->size) {
        return -1;
    }
    for (uint32_t i = 0; i < a->size; ++i) {
        double* const element = complex_family::at(a, i);
        store(element, 0, divide(load(element, 0), load(complex_family::at(b, i), 0)));
    }
    return 0;
}
