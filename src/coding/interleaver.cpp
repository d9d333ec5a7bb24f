#include "kosc/interleaver.h"

#include "coding/permute.h"
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
    interleave(in->data, in->stride, in->size, r, uint8_t{0}, out->data);
    return out;
}
