#include "kosc/soft_viterbi.h"

#include <numeric>

#include <gtest/gtest.h>

#include "channels.h"
#include "support/content.h"

namespace {

using kosc_link::random_source;
using decoder_ptr = owned<soft_viterbi_t, soft_viterbi_free>;

constexpr uint32_t SHORTEST[] = {3, 1}, SHORT[] = {7, 5}, BUILT_IN[] = {95, 107, 81}, LONG[] = {367, 435, 457};

const code_ptr CODES[] = {code_ptr{conv_code_init(3, SHORT, 2)}, code_ptr{conv_code_init(7, BUILT_IN, 3)},
                          code_ptr{conv_code_init(9, LONG, 3)}, code_ptr{conv_code_init(2, SHORTEST, 2)}};

TEST(SoftViterbi, FindsTheWordThatAgreesBestOfAllThatEndInTheZeroState)
{
    constexpr uint32_t INFO_BITS = 8;
    random_source random{1};
    for (int trial = 0; trial < 60; ++trial) {
        const conv_code_t* const code = CODES[trial % 4].get();
        double_list soft(conv_code_encode_length(code, INFO_BITS));
        for (double& value : soft) {
            // A fifth of holes, and at first nothing else: of equals, the first word is due.
            value = trial < 4 || random.uniform() < 0.2 ? 0.0 : random.gaussian();
        }
        byte_list best;
        double best_agreement = -1e9;
        for (uint32_t word = 0; word < 1U << INFO_BITS; ++word) {
            byte_list info(INFO_BITS);
            for (uint32_t b = 0; b < INFO_BITS; ++b) {
                info[b] = word >> b & 1;
            }
            const byte_list coded = content(conv_code_encode(code, info.data(), INFO_BITS));
            const double agreement = std::inner_product(soft.begin(), soft.end(), coded.begin(), 0.0);
            if (agreement > best_agreement) {
                best_agreement = agreement;
                best = info;
            }
        }
        best.resize(INFO_BITS + code->constraint - 1);
        const auto steps = static_cast<uint32_t>(best.size());
        const decoder_ptr decoder{soft_viterbi_init(code, steps)};
        byte_list found(steps, 0xEE);
        EXPECT_TRUE(soft_viterbi_decode(decoder.get(), soft.data(), steps, found.data()));
        EXPECT_EQ(found, best) << "trial " << trial;
    }
}

TEST(SoftViterbi, RefusesWhatItCannotHold)
{
    const uint32_t one = 1, nine[] = {1, 1, 1, 1, 1, 1, 1, 1, 1};
    EXPECT_EQ(soft_viterbi_init(code_ptr{conv_code_init(1, &one, 1)}.get(), 10), nullptr);
    EXPECT_EQ(soft_viterbi_init(code_ptr{conv_code_init(3, nine, 9)}.get(), 10), nullptr);
    EXPECT_EQ(soft_viterbi_init(code_ptr{conv_code_init(17, &one, 1)}.get(), 20), nullptr);
    const decoder_ptr decoder{soft_viterbi_init(CODES[0].get(), 10)};
    const double_list soft(22);
    byte_list found(11);
    EXPECT_FALSE(soft_viterbi_decode(decoder.get(), soft.data(), 11, found.data()));
    EXPECT_FALSE(soft_viterbi_decode(decoder.get(), soft.data(), 1, found.data())) << "shorter than the tail";
}

} // namespace
