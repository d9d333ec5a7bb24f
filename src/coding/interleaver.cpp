#include "kosc/interleaver.h"

#include <algorithm>

#include "math/vector_family.h"

using namespace kosc;

kom_vector_uint8* interleaver_encode(const kom_vector_uint8* in, uint32_t stride)
{
    return block_interleave(in, stride);
}

kom_vector_uint8* interleaver_decode(const kom_vector_uint8* in, uint32_t stride)
{
    return stride != 0 ? block_interleave(in, kom_vector_uint8_size(in) / stride) : nullptr;
}

kom_vector_uint8* block_interleave(const kom_vector_uint8* in, uint32_t r)
{
    if (in == nullptr || r == 0) {
        return nullptr;
    }
    kom_vector_uint8* const out = kom_vector_uint8_alloc(in->size);
    if (out == nullptr) {
        return nullptr;
    }
    // What a stride that does not divide the size leaves over is zero.
    const uint32_t c = in->data != nullptr ? in->size / r : 0;
    std::fill_n(out->data + r * c, in->size - r * c, uint8_t{0});
    for (uint32_t i = 0; c != 0 && i < r; ++i) {
        uint8_t* const row = out->data + i * c;
        uint32_t from = i * in->stride; // wraps as all positions in vectors do
        for (uint32_t j = 0; j < c; ++j, from += r * in->stride) {
            row[j] = in->data[from];
        }
    }
    return out;
}
