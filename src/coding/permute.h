// The orders that the interleaver and the puncturing put elements into, for elements of any type.
#ifndef KOSC_CODING_PERMUTE_H
#define KOSC_CODING_PERMUTE_H

#include <cstddef>
#include <cstdint>

#include "kosc/puncture.h"

namespace kosc {

// out[i*c + k] = in[i + k*r] for i < r, k < c = size / r, and `rest` behind r*c. `stride` is that of `in`.
template <typename T> void interleave(const T* in, uint32_t stride, uint32_t size, uint32_t r, T rest, T* out)
{
    const uint32_t c = in != nullptr ? size / r : 0;
    for (uint32_t i = r * c; i < size; ++i) {
        out[i] = rest;
    }
    for (uint32_t i = 0; c != 0 && i < r; ++i) {
        T* const row = out + i * c;
        uint32_t from = i * stride; // wraps as all positions in vectors do
        for (uint32_t j = 0; j < c; ++j, from += r * stride) {
            row[j] = in[from];
        }
    }
}

// The kept_len elements of `in` in their old places among total_len, with `hole` where one was removed.
template <typename T> void depuncture(const punch_template_t& t, const T* in, T hole, T* out)
{
    uint32_t read = 0;
    uint64_t removed = t.offset;
    for (uint32_t i = 0; i < t.total_len; ++i) {
        const bool is_removed = i == removed;
        removed += is_removed ? t.step : 0;
        out[i] = is_removed || read == t.kept_len ? hole : in[read++];
    }
}

} // namespace kosc

#endif
