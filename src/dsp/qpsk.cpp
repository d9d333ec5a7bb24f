#include "kosc/qpsk.h"

#include "config/qpsk_constants.h"
#include "math/vector_family.h"

using namespace kosc;

namespace {

// Written so that zero, minus zero and NaN count as ones.
uint8_t axis_bit(double level) { return level < 0.0 ? 0 : 1; }

} // namespace

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

kom_vector_uint8* qpsk_demod(const kom_vector_complex* symbols)
{
    if (symbols == nullptr || symbols->size > UINT32_MAX / QPSK_BITS) {
        return nullptr;
    }
    kom_vector_uint8* const bits = kom_vector_uint8_alloc(QPSK_BITS * symbols->size);
    for (uint32_t i = 0; bits != nullptr && i < symbols->size; ++i) {
        const kom_complex symbol = kom_vector_complex_get(symbols, i);
        bits->data[2 * i] = axis_bit(symbol.re);
        bits->data[2 * i + 1] = axis_bit(symbol.im);
    }
    return bits;
}
