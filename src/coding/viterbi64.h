// Viterbi decoder for codes of constraint length 7, whose 64 states fit a few machine registers.
#ifndef KOSC_CODING_VITERBI64_H
#define KOSC_CODING_VITERBI64_H

#include <cstddef>

#include "kosc/conv_code.h"

// Metrics of all transitions for each group of received code bits.
struct viterbi64_table;

namespace kosc {

// The table of a code; null when memory is short, or when the code is not of constraint length 7 with up to 3
// polynomials.
viterbi64_table* viterbi64_init(const conv_code_t* code);

// Null is ignored.
void viterbi64_free(viterbi64_table* table);

// Whether every received code bit is 0, 1 or a hole: what the table knows.
bool viterbi64_suits(const uint8_t* coded, size_t count);

// The bits of viterbi_decode(), into `decoded`, with room in `decisions` for 64 bytes a step.
void viterbi64_decode(const viterbi64_table* table, const uint8_t* coded, uint32_t step_num, int8_t* decisions,
                      uint8_t* decoded);

} // namespace kosc

#endif
