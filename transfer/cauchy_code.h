// A systematic code of up to 65536 symbols, any n of which give the n source symbols back.
//
// Symbol p < n is source symbol p; symbol p >= n is the sum of all source symbols j, each over the field element p + j.
// The repair part is a Cauchy matrix, all of whose square parts have an inverse, which is known in closed form.
// Source: Bloemer, Kalfane, Karp, Karpinski, Luby and Zuckerman 1995, "An XOR-based erasure-resilient coding scheme";
// the inverse: Schechter 1959, "On the inversion of certain matrices".
#ifndef KOSC_TRANSFER_CAUCHY_CODE_H
#define KOSC_TRANSFER_CAUCHY_CODE_H

#include <cstdint>

#include "field.h"

namespace kosc_transfer {

// The sum of symbols[i] / (point + points[i]); `point` is none of them.
symbol cauchy_sum(const field& f, uint32_t point, const uint16_t* points, const symbol* symbols, uint32_t count);

// Turns any n symbols of a block into the n source symbols.
//
// places and symbols, n of each, are reordered and then used up. False, with nothing lost, when memory is short.
bool decode_block(const field& f, uint32_t n, uint16_t* places, symbol* symbols, symbol* sources);

} // namespace kosc_transfer

#endif
