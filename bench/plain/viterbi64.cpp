#include "coding/viterbi64.h"

// No code has a table here, so that every block is decoded slot by slot.

viterbi64_table* kosc::viterbi64_init(const conv_code_t*) { return nullptr; }

void kosc::viterbi64_free(viterbi64_table*) {}

bool kosc::viterbi64_suits(const uint8_t*, size_t) { return false; }

void kosc::viterbi64_decode(const viterbi64_table*, const uint8_t*, uint32_t, int8_t*, uint8_t*) {}
