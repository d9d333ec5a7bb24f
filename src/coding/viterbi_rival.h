// Paths that a Viterbi decoder nearly took.
#ifndef KOSC_CODING_VITERBI_RIVAL_H
#define KOSC_CODING_VITERBI_RIVAL_H

#include "kosc/soft_viterbi.h"

namespace kosc {

// Of all paths that leave the one decoded last and meet it again right behind step `end`, the best: changes[i] = 1
// where its bit i differs, of the bits from the result on to `end`, the last K - 1 of which are alike. `bits` are the
// decoded ones. NO_RIVAL where no path does. Source: Hagenauer and Hoeher 1989, "A Viterbi algorithm with soft-decision
// outputs and its applications".
constexpr uint32_t NO_RIVAL = UINT32_MAX;
uint32_t find_rival(const soft_viterbi_t& decoder, const uint8_t* bits, uint32_t end, uint8_t* changes);

} // namespace kosc

#endif
