// The operations that the three families of strided vectors share, written once over the kind of element.
#ifndef KOSC_MATH_VECTOR_FAMILY_H
#define KOSC_MATH_VECTOR_FAMILY_H

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <type_traits>

#include "kosc/vector.h"
#include "platform/owned.h"

namespace kosc {

// A family's record, the scalar behind its data pointer, and how many scalars make an element.
template <typename V, uint32_t Parts> struct vector_family {
    using scalar = std::remove_pointer_t<decltype(V::data)>;

    // Positions count elements and wrap at 32 bits; the address does not.
    static scalar* at(const V* v, uint32_t i) { return v->data + size_t{Parts} * (i * v->stride); }

    static void assign(scalar* dst, const scalar* src)
    {
        for (uint32_t part = 0; part < Parts; ++part) {
            dst[part] = src[part];
        }
    }

    static bool has(const V* v, uint32_t i) { return v != nullptr && v->data != nullptr && i < v->size; }

    // Whether a run may be copied: none of its elements lies at or behind `length`, without wrapping.
    static bool run_fits(uint32_t offset, uint32_t stride, uint32_t count, uint32_t length)
    {
        return stride != 0 && count != 0 && offset + uint64_t{count - 1} * stride < length;
    }

    // Whether a view may be taken: the same question in wrapping arithmetic, as callers of views rely on.
    static bool view_fits(uint32_t offset, uint32_t stride, uint32_t count, uint32_t length)
    {
        const uint32_t steps = count > 0 ? count - 1 : 0;
        return stride != 0 && offset + steps * stride < length;
    }

    // Copies a run that fits, in order: an overlapping copy repeats what it wrote.
    static void copy_run(V* dst, uint32_t dst_offset, uint32_t dst_stride, const V* src, uint32_t src_offset,
                         uint32_t src_stride, uint32_t count)
    {
        scalar* const to = at(dst, dst_offset);
        const scalar* const from = at(src, src_offset);
        const bool contiguous = dst->stride * dst_stride == 1 && src->stride * src_stride == 1;
        const size_t length = size_t{Parts} * count;
        if (contiguous && (to + length <= from || from + length <= to)) {
            std::memcpy(to, from, length * sizeof(scalar));
            return;
        }
        for (uint32_t i = 0; i < count; ++i) {
            assign(at(dst, dst_offset + i * dst_stride), at(src, src_offset + i * src_stride));
        }
    }

    static V* alloc(uint32_t count)
    {
        block_ptr<scalar> block{count > SIZE_MAX / Parts ? nullptr : alloc_array<scalar>(size_t{count} * Parts)};
        auto* v = alloc_record<V>();
        if (v == nullptr || (!block && count != 0)) {
            std::free(v);
            return nullptr;
        }
        *v = {1, count, 1, block.release()};
        return v;
    }

    static V* alloc_from_vector(const V* src, uint32_t offset, uint32_t count, uint32_t stride)
    {
        if (src == nullptr || src->data == nullptr || !run_fits(offset, stride, count, src->size)) {
            return nullptr;
        }
        V* const v = alloc(count);
        if (v != nullptr) {
            copy_run(v, 0, 1, src, offset, stride, count);
        }
        return v;
    }

    static V* alloc_from_array(const scalar* array, uint32_t length, uint32_t offset, uint32_t stride, uint32_t count)
    {
        const V whole = const_view_array(array, length, 0, 1, length);
        return alloc_from_vector(&whole, offset, count, stride);
    }

    static void free(V* v)
    {
        if (v != nullptr && v->owner != 0) {
            std::free(v->data);
            std::free(v);
        }
    }

    static uint32_t set_by_vector(V* dst, uint32_t dst_offset, uint32_t dst_stride, const V* src, uint32_t src_offset,
                                  uint32_t src_stride, uint32_t count)
    {
        if (dst == nullptr || src == nullptr || dst->data == nullptr || src->data == nullptr ||
            !run_fits(dst_offset, dst_stride, count, dst->size) ||
            !run_fits(src_offset, src_stride, count, src->size)) {
            return 0;
        }
        copy_run(dst, dst_offset, dst_stride, src, src_offset, src_stride, count);
        return count;
    }

    static void set_zero(V* v)
    {
        constexpr scalar zeros[Parts] = {};
        for (uint32_t i = 0; has(v, i); ++i) {
            assign(at(v, i), zeros);
        }
    }

    static void reverse(V* v)
    {
        if (v == nullptr || v->data == nullptr) {
            return;
        }
        for (uint32_t i = 0; i < v->size / 2; ++i) {
            scalar* const front = at(v, i);
            scalar* const back = at(v, v->size - 1 - i);
            scalar kept[Parts];
            assign(kept, front);
            assign(front, back);
            assign(back, kept);
        }
    }

    static V const_view_array(const scalar* array, uint32_t length, uint32_t offset, uint32_t stride, uint32_t count)
    {
        if (array == nullptr || !view_fits(offset, stride, count, length)) {
            return {};
        }
        // One record type serves owners and views, so a view drops the const of what it borrows.
        return {0, count, stride, const_cast<scalar*>(array) + size_t{Parts} * offset};
    }

    static V const_subvector(const V* v, uint32_t offset, uint32_t stride, uint32_t count)
    {
        if (v == nullptr || v->data == nullptr || !view_fits(offset, stride, count, v->size)) {
            return {};
        }
        return {0, count, v->stride * stride, at(v, offset)};
    }
};

using uint8_family = vector_family<kom_vector_uint8, 1>;
using double_family = vector_family<kom_vector, 1>;
using complex_family = vector_family<kom_vector_complex, 2>;

// Guards for the three kinds of vector.
using bytes_ptr = owned<kom_vector_uint8, kom_vector_uint8_free>;
using doubles_ptr = owned<kom_vector, kom_vector_free>;
using complex_ptr = owned<kom_vector_complex, kom_vector_complex_free>;

} // namespace kosc

#endif
