#include "kosc/soft_viterbi.h"

#include <gtest/gtest.h>

#include "channels.h"
#include "support/content.h"

namespace {

using kosc_link::random_source;
using decoder_ptr = owned<soft_viterbi_t, soft_viterbi_free>;

constexpr uint32_t SHORT[] = {7, 5}, BUILT_IN[] = {95, 107, 81}, LONG[] = {367, 435, 457};

struct code_case {
    uint32_t constraint;
    const uint32_t* polynomials;
    uint32_t count;
    uint32_t info_bits;
};

constexpr code_case CODES[] = {{3, SHORT, 2, 9}, {7, BUILT_IN, 3, 256}, {9, LONG, 3, 40}};

code_ptr make(const code_case& c) { return code_ptr{conv_code_init(c.constraint, c.polynomials, c.count)}; }

byte_list decode(const conv_code_t* code, const double_list& soft)
{
    const auto steps = static_cast<uint32_t>(soft.size()) / code->polynomial_num;
    const decoder_ptr decoder{soft_viterbi_init(code, steps)};
    byte_list found(steps, 0xEE);
    EXPECT_TRUE(soft_viterbi_decode(decoder.get(), soft.data(), steps, found.data()));
    return found;
}

byte_list random_bits(uint32_t count, random_source* random)
{
    byte_list all(count);
    for (uint8_t& bit : all) {
        bit = random->bits() & 1;
    }
    return all;
}

byte_list encode(const conv_code_t* code, const byte_list& info)
{
    return content(conv_code_encode(code, info.data(), static_cast<uint32_t>(info.size())));
}

double agreement(const double_list& soft, const byte_list& coded)
{
    double sum = 0.0;
    for (size_t i = 0; i < soft.size(); ++i) {
        sum += coded[i] != 0 ? soft[i] : -soft[i];
    }
    return sum;
}

TEST(SoftViterbi, FindsTheWordThatAgreesBestOfAll)
{
    const code_case& c = CODES[0];
    const code_ptr code = make(c);
    random_source random{1};
    for (int trial = 0; trial < 20; ++trial) {
        double_list soft(conv_code_encode_length(code.get(), c.info_bits));
        for (double& value : soft) {
            value = random.uniform() < 0.2 ? 0.0 : random.gaussian(); // a fifth of holes
        }
        byte_list best;
        double best_agreement = -1e9;
        for (uint32_t word = 0; word < 1U << c.info_bits; ++word) {
            byte_list info(c.info_bits);
            for (uint32_t b = 0; b < c.info_bits; ++b) {
                info[b] = word >> b & 1;
            }
            const double found = agreement(soft, encode(code.get(), info));
            if (found > best_agreement) {
                best_agreement = found;
                best = info;
            }
        }
        byte_list found = decode(code.get(), soft);
        found.resize(c.info_bits);
        EXPECT_EQ(found, best) << "trial " << trial;
    }
}

TEST(SoftViterbi, CorrectsHardInputsAsTheHardDecoderDoes)
{
    random_source random{2};
    for (const code_case& c : CODES) {
        SCOPED_TRACE(c.constraint);
        const code_ptr code = make(c);
        byte_list received = encode(code.get(), random_bits(c.info_bits, &random));
        for (size_t i = 5; i < received.size(); i += 23) {
            received[i] ^= 1;
        }
        double_list soft;
        for (const uint8_t bit : received) {
            soft.push_back(bit != 0 ? 1.0 : -1.0);
        }
        const auto len = static_cast<uint32_t>(received.size());
        EXPECT_EQ(decode(code.get(), soft), content(conv_code_decode_hard(code.get(), received.data(), len, true)));
    }
}

TEST(SoftViterbi, TakesStrongValuesOverManyWeakOnes)
{
    const code_ptr code = make(CODES[1]);
    random_source random{3};
    byte_list info = random_bits(256, &random);
    const byte_list coded = encode(code.get(), info);
    double_list soft;
    for (size_t i = 0; i < coded.size(); ++i) {
        const double sign = coded[i] != 0 ? 1.0 : -1.0;
        soft.push_back(i % 3 != 1 ? sign : -0.1 * sign); // a third of the hard decisions are wrong
    }
    info.resize(info.size() + 6);
    EXPECT_EQ(decode(code.get(), soft), info);
}

TEST(SoftViterbi, EndsInTheZeroStateWhateverItHears)
{
    random_source random{4};
    for (const code_case& c : CODES) {
        SCOPED_TRACE(c.constraint);
        const code_ptr code = make(c);
        double_list soft(conv_code_encode_length(code.get(), c.info_bits));
        for (double& value : soft) {
            value = 1.0 + 0.1 * random.gaussian(); // ones throughout, tail included
        }
        const byte_list found = decode(code.get(), soft);
        EXPECT_EQ(list(&found[c.info_bits], c.constraint - 1), byte_list(c.constraint - 1));
    }
}

TEST(SoftViterbi, DecodesNothingButHolesToZeros)
{
    for (const code_case& c : CODES) {
        const code_ptr code = make(c);
        const double_list holes(conv_code_encode_length(code.get(), c.info_bits));
        EXPECT_EQ(decode(code.get(), holes), byte_list(c.info_bits + c.constraint - 1));
    }
}

TEST(SoftViterbi, RefusesWhatItCannotHold)
{
    const uint32_t one = 1, nine[] = {1, 1, 1, 1, 1, 1, 1, 1, 1};
    const code_ptr no_memory{conv_code_init(1, &one, 1)}, too_wide{conv_code_init(3, nine, 9)}, good = make(CODES[0]);
    EXPECT_EQ(soft_viterbi_init(nullptr, 10), nullptr);
    EXPECT_EQ(soft_viterbi_init(no_memory.get(), 10), nullptr);
    EXPECT_EQ(soft_viterbi_init(too_wide.get(), 10), nullptr);
    const decoder_ptr decoder{soft_viterbi_init(good.get(), 10)};
    const double_list soft(22);
    byte_list found(11);
    EXPECT_FALSE(soft_viterbi_decode(nullptr, soft.data(), 10, found.data()));
    EXPECT_FALSE(soft_viterbi_decode(decoder.get(), nullptr, 10, found.data()));
    EXPECT_FALSE(soft_viterbi_decode(decoder.get(), soft.data(), 10, nullptr));
    EXPECT_FALSE(soft_viterbi_decode(decoder.get(), soft.data(), 11, found.data()));
    EXPECT_FALSE(soft_viterbi_decode(decoder.get(), soft.data(), 1, found.data())) << "shorter than the tail";
}

} // namespace
