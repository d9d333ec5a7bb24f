// The convolutional encoder's loop, for whoever takes its bits.
#ifndef KOSC_CODING_CONV_STEPS_H
#define KOSC_CODING_CONV_STEPS_H

#include <cstddef>

#include "kosc/conv_code.h"

namespace kosc {

// Calls take(position, code bit) for each code bit of `bit_num` bits and the tail of zeros, in order.
template <typename Take> void conv_encode(const conv_code_t& code, const uint8_t* bits, uint32_t bit_num, Take take)
{
    const uint32_t n = code.polynomial_num;
    const uint32_t tail = code.constraint - 1;
    uint32_t state = 0;
    for (uint32_t i = 0; i < bit_num + tail; ++i) {
        const uint32_t bit = i < bit_num ? bits[i] & 1 : 0;
        const uint32_t shift_register = state | bit << tail;
        const uint8_t* const row = code.output_table + size_t{shift_register} * n;
        for (uint32_t k = 0; k < n; ++k) {
            take(size_t{i} * n + k, row[k]);
        }
        state = shift_register >> 1;
    }
}

} // namespace kosc

#endif
