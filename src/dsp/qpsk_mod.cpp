#include "kosc/qpsk.h"

#include "config/qpsk_constants.h"
#include "math/vector_family.h"

using namespace kosc;

kom_vector_complex* qpsk_mod(const kom_vector_uint8* bits)
{
    if (bits == nullptr) {
        return nullptr;
    }
    const uint32_t bit_num = uint8_family::has(bits, 0) ? QPSK_BITS * (bits->size / QPSK_BITS) : 0;
    kom_vector_complex* const symbols = kom_vector_complex_alloc(bit_num / QPSK_BITS);
    uint32_t from = 0; // wraps as all positions in vectors do
    for (uint32_t i = 0; symbols != nullptr && i < bit_num; ++i, from += bits->stride) {
        symbols->data[i] = QPSK_LEVEL[bits->data[from] != 0];
    }
    return symbols;
}
