// How well soft bits agree: those of one frame with those of others, and with a block that was decided.
#ifndef KOSC_COMBINE_AGREEMENT_H
#define KOSC_COMBINE_AGREEMENT_H

#include "combine/weak_frame.h"
#include "second_look/soft_decoder.h"

namespace kosc {

// The expected value of a bit sent as -1 or +1, tanh(llr/2), for each ratio that a frame can keep.
struct bit_expectations {
    float of[256]; // indexed by the ratio, in LLR_UNIT, and 128
};

void init_bit_expectations(bit_expectations* table);

// Likewise of sums of ratios, by a continued fraction; errs by less than 0.001.
void expect_bits(const float* llr, float* expected);

// ln of the likelihood that a frame carries the bits that `expected` tells of, over that of bits that have nothing to
// do with them: the sum of ln(1 + a*b) over the expected values of both. Where `among` is not null, of positions
// marked. Source: Hagenauer, Offer and Papke 1996, "Iterative decoding of binary block and convolutional codes" (the
// ratio of a sum modulo 2).
double agreement(const bit_expectations& table, const float* expected, const int8_t* llr, const bool* among);

// What the code bits of a block are sent as: +1 for a one, -1 for a zero, in the order sent.
void sign_block(const uint8_t* bits, const soft_decoder& decoder, float* sign);

// Marks the places of the code bits that a bit of the block's `count` from `first` on is part of.
void mark_bits(uint32_t first, uint32_t count, const soft_decoder& decoder, bool* among);

} // namespace kosc

#endif
