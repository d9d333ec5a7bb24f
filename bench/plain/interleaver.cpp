#include "kosc/interleaver.h"

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
    kom_vector_uint8_set_zero(out); // what a stride that does not divide the size leaves over
    const uint32_t c = in->size / r;
    for (uint32_t i = 0; out != nullptr && c != 0 && i < r; ++i) {
        const kom_vector_uint8 row = kom_vector_uint8_const_subvector(in, i, r, c);
        kom_vector_uint8_set_by_vector(out, i * c, 1, &row, 0, 1, c);
    }
    return out;
}
