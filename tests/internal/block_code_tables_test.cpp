// The tables of the (8, 2) code against each other: whoever decodes by hand needs all columns, the decoder only two.
#include "coding/block_code_tables.h"

#include <numeric>

#include <gtest/gtest.h>

namespace {

using namespace kosc;

uint32_t syndrome(const uint8_t* word)
{
    uint32_t bits = 0;
    for (uint32_t j = 0; j < CODE_PARITY; ++j) {
        uint32_t sum = 0;
        for (uint32_t i = 0; i < CODE_N; ++i) {
            sum ^= word[i] & parity_check_table[i][j];
        }
        bits = 2 * bits + sum;
    }
    return bits;
}

TEST(BlockCodeTables, HaveALightestErrorForEverySyndromeAndNoneForCodeWords)
{
    for (const auto& row : generator_table) {
        EXPECT_EQ(syndrome(row), 0U);
    }
    uint32_t lightest[CODE_SYNDROMES];
    std::fill_n(lightest, CODE_SYNDROMES, CODE_N);
    for (uint32_t word = 0; word < 1U << CODE_N; ++word) {
        uint8_t bits[CODE_N];
        for (uint32_t i = 0; i < CODE_N; ++i) {
            bits[i] = word >> i & 1;
        }
        uint32_t& least = lightest[syndrome(bits)];
        least = std::min(least, std::accumulate(bits, bits + CODE_N, 0U));
    }
    for (uint32_t s = 0; s < CODE_SYNDROMES; ++s) {
        const uint8_t* const leader = coset_leader_table[s];
        EXPECT_EQ(syndrome(leader), s);
        EXPECT_EQ(std::accumulate(leader, leader + CODE_N, 0U), lightest[s]) << s;
    }
}

} // namespace
