#include "kosc/qpsk.h"

#include "config/qpsk_constants.h"

using namespace kosc;

namespace {

double axis_level(uint8_t bit) { return bit != 0 ? QPSK_AMPLITUDE : -QPSK_AMPLITUDE; }

} // namespace

kom_vector_complex* qpsk_mod(const kom_vector_uint8* bits)
{
    if (bits == nullptr) {
        return nullptr;
    }
    kom_vector_complex* const symbols = kom_vector_complex_alloc(bits->size / QPSK_BITS);
    for (uint32_t i = 0; i < kom_vector_complex_size(symbols); ++i) {
        kom_vector_complex_set(symbols, i, axis_level(kom_vector_uint8_get(bits, 2 * i)),
                               axis_level(kom_vector_uint8_get(bits, 2 * i + 1)));
    }
    return symbols;
}
