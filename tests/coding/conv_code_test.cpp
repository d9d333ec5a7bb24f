#include "kosc/conv_code.h"

#include <numeric>

#include "channels.h"
#include "support/modem.h"

namespace {

using kosc_link::random_source;

code_ptr make_code(uint32_t constraint, const std::vector<uint32_t>& polynomials)
{
    return code_ptr{conv_code_init(constraint, polynomials.data(), static_cast<uint32_t>(polynomials.size()))};
}

byte_list encoded(const code_ptr& code, const byte_list& data)
{
    return content(conv_code_encode(code.get(), data.data(), static_cast<uint32_t>(data.size())));
}

byte_list decoded(const code_ptr& code, const byte_list& coded, bool terminated)
{
    return content(conv_code_decode_hard(code.get(), coded.data(), static_cast<uint32_t>(coded.size()), terminated));
}

TEST(ConvCode, AnswersASingleOneWithItsPolynomialsFromBitZeroUp)
{
    EXPECT_EQ(encoded(make_code(7, {95, 107, 81}), {1}), bits("111 110 100 110 101 010 111"));
    EXPECT_EQ(encoded(make_code(4, {13, 10, 7, 8}), {0xF7}), bits("1010 0110 1010 1101"));
    EXPECT_EQ(encoded(make_code(9, {0x1A7, 0x0F9}), {1}), bits("11 10 10 01 01 11 01 11 00")); // no tap above bit 7
}

// All words of INFO_BITS bits through the encoder, ordered by their bits, the newest first: of words that agree equally
// well with what was received, every decoder is to take the first.
constexpr uint32_t INFO_BITS = 12;

std::vector<byte_list> all_words(const code_ptr& code)
{
    std::vector<byte_list> words(1U << INFO_BITS);
    byte_list info(INFO_BITS);
    for (uint32_t word = 0; word < words.size(); ++word) {
        for (uint32_t i = 0; i < INFO_BITS; ++i) {
            info[i] = word >> i & 1;
        }
        words[word] = encoded(code, info);
    }
    return words;
}

// The bits of the first word of the least cost, followed by zeros.
template <typename Cost> byte_list first_best(const std::vector<byte_list>& words, size_t len, Cost cost)
{
    std::vector<decltype(cost(words[0]))> costs(words.size());
    std::transform(words.begin(), words.end(), costs.begin(), cost);
    const auto best = static_cast<uint32_t>(std::min_element(costs.begin(), costs.end()) - costs.begin());
    byte_list info(len);
    for (uint32_t i = 0; i < INFO_BITS; ++i) {
        info[i] = best >> i & 1;
    }
    return info;
}

TEST(Viterbi, FindsTheFirstOfAllWordsNextToWhatWasReceivedHardOrSoft)
{
    const std::pair<uint32_t, std::vector<uint32_t>> codes[] = {
        {2, {3, 2}}, {4, {15}}, {5, {25, 23, 21, 27}}, {7, {121, 91}}, {7, {95, 107, 81}}, {9, {367, 435, 458}}};
    random_source random{7};
    for (const auto& [constraint, polynomials] : codes) {
        const code_ptr code = make_code(constraint, polynomials);
        const std::vector<byte_list> words = all_words(code);
        ASSERT_EQ(words[0].size(), conv_code_encode_length(code.get(), INFO_BITS));
        const uint32_t steps = INFO_BITS + constraint - 1;
        const soft_viterbi_ptr decoder{soft_viterbi_init(code.get(), steps)};
        for (uint32_t round = 0; round < 20; ++round) { // from clean blocks to noise, and at last all paths tie
            SCOPED_TRACE(testing::Message() << "constraint " << constraint << ", round " << round);
            double_list soft(words[0].size());
            byte_list hard(INFO_BITS * polynomials.size());
            const byte_list& sent = words[random.bits() % words.size()];
            for (size_t i = 0; i < soft.size(); ++i) {
                const bool is_hole = round == 19 || (round % 3 == 1 && random.uniform() < 0.25);
                soft[i] = is_hole ? 0.0 : (sent[i] != 0 ? 1.0 : -1.0) + 0.2 * round * random.gaussian();
                if (i < hard.size()) {
                    hard[i] = is_hole ? HOLE : soft[i] > 0 ? 1 : 0;
                }
            }
            hard[random.bits() % hard.size()] ^= round % 4 == 2 ? 2 : 0; // a single strange byte
            const byte_list nearest = first_best(words, INFO_BITS, [&](const byte_list& word) {
                return std::inner_product(hard.begin(), hard.end(), word.begin(), 0U, std::plus<>(),
                                          [](uint32_t r, uint32_t w) { return r == HOLE ? 0 : r ^ w; });
            });
            EXPECT_EQ(decoded(code, hard, false), nearest);
            EXPECT_EQ(decoded(code, hard, true), nearest) << "terminated";
            const byte_list most_likely = first_best(words, steps, [&](const byte_list& word) {
                return -std::inner_product(soft.begin(), soft.end(), word.begin(), 0.0);
            });
            byte_list found(steps, 0xEE);
            EXPECT_TRUE(soft_viterbi_decode(decoder.get(), soft.data(), steps, found.data()));
            EXPECT_EQ(found, most_likely) << "soft";
        }
    }
}

// Noise, in which metrics grow fastest. A two more in a received byte costs every path the same two, and all paths are
// then followed slot by slot, in metrics that need no renormalisation.
TEST(Viterbi, DecidesInLongBlocksAsItDoesSlotBySlot)
{
    random_source random{8};
    const std::vector<uint32_t> codes[] = {{95, 107, 81}, {121, 91}};
    for (const auto& polynomials : codes) {
        const code_ptr code = make_code(7, polynomials);
        for (uint32_t round = 0; round < 10; ++round) {
            byte_list noise(600 * polynomials.size());
            std::generate(noise.begin(), noise.end(),
                          [&] { return random.bits() % 8 < round ? random.bits() & 1 : 1; });
            byte_list strange = noise;
            strange[random.bits() % strange.size()] += 2;
            EXPECT_EQ(decoded(code, noise, true), decoded(code, strange, false)) << round;
        }
    }
}

TEST(SoftViterbi, RefusesWhatItCannotHold)
{
    const code_ptr code = make_code(3, {7, 5});
    EXPECT_EQ(soft_viterbi_init(make_code(1, {1}).get(), 10), nullptr);
    EXPECT_EQ(soft_viterbi_init(make_code(3, std::vector<uint32_t>(9, 1)).get(), 10), nullptr);
    EXPECT_EQ(soft_viterbi_init(make_code(17, {1}).get(), 20), nullptr);
    const soft_viterbi_ptr decoder{soft_viterbi_init(code.get(), 10)};
    const double_list soft(22);
    byte_list found(11);
    EXPECT_FALSE(soft_viterbi_decode(decoder.get(), soft.data(), 11, found.data()));
    EXPECT_FALSE(soft_viterbi_decode(decoder.get(), soft.data(), 1, found.data())) << "shorter than the tail";
}

TEST(ConvCode, ReportsWhatItRefuses)
{
    const uint32_t ones[] = {1, 1}, outside[] = {95, 128, 200};
    const code_ptr code = make_code(7, {95, 107, 81}), shortest = make_code(1, {1}), longest = make_code(20, {1});
    const byte_list block(785), endless(3 * ((1U << 24) + 1));
    const log_capture log;
    EXPECT_EQ(conv_code_encode(code.get(), nullptr, 3).data, nullptr);
    EXPECT_EQ(logged(), text_list{"WARN Invalid input to encode."});
    expect_refusals({
        {[&] { return conv_code_init(0, ones, 2) != nullptr; }, {"Invalid para 0, 1, 2"}},
        {[&] { return conv_code_init(7, nullptr, 3) != nullptr; }, {"Invalid para 7, 0, 3"}},
        {[&] { return conv_code_init(7, outside, 3) != nullptr; }, {"Invalid polynomial 128"}},
        {[&] { return conv_code_init(32, ones, 2) != nullptr; }, {"Invalid polynomial 1"}}, // shifts are modulo 32
        {[&] { return conv_code_init(25, ones, 2) != nullptr; }, {"fail to malloc output."}},
        {[&] { return conv_code_init(31, ones, 2) != nullptr; }, {"fail to malloc output."}},
        {[&] { return conv_code_encode(code.get(), block.data(), 0xFFFFFFF0).len != 0; }, {"No enough memory."}},
        {[&] { return !decoded(nullptr, block, true).empty(); }, {"NULL pointer."}},
        {[&] { return !decoded(code, block, true).empty(); }, {"Data length(785) isn't dividable by 3."}},
        {[&] { return !decoded(shortest, block, true).empty(); }, {"constraint 1 is too short to decode"}},
        {[&] { return !decoded(longest, block, true).empty(); }, {"failt to alloc memory 785 1048576."}}, // 3 GB
        {[&] { return !decoded(code, endless, true).empty(); }, {"failt to alloc memory 16777217 128."}}, // above 1 GB
    });
}

} // namespace
