// Tables of the (8, 2) code.
#ifndef KOSC_CODING_BLOCK_CODE_TABLES_H
#define KOSC_CODING_BLOCK_CODE_TABLES_H

#include <cstdint>

namespace kosc {

constexpr uint32_t CODE_N = 8;
constexpr uint32_t CODE_K = 2;
constexpr uint32_t CODE_PARITY = CODE_N - CODE_K;
constexpr uint32_t CODE_SYNDROMES = 1 << CODE_PARITY;

extern const uint8_t generator_table[CODE_K][CODE_N];
extern const uint8_t parity_check_table[CODE_N][CODE_PARITY];
extern const uint8_t coset_leader_table[CODE_SYNDROMES][CODE_N];

} // namespace kosc

#endif
