#include "kosc/qpsk.h"

#include "config/qpsk_constants.h"
#include "math/vector_family.h"

using namespace kosc;

namespace {

// Written so that zero, minus zero and NaN count as ones.
uint8_t axis_bit(double level) { return level < 0.0 ? 0 : 1; }

} // namespace

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
