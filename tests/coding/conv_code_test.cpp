#include "kosc/conv_code.h"

#include <random>

#include "support/modem.h"

namespace {

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

// The decoder slot by slot, as plainly as it can be put.
byte_list slot_by_slot(const conv_code_t& code, const byte_list& coded, bool terminated)
{
    constexpr uint32_t NEVER = 0xFFFFFFFF;
    const uint32_t k = code.constraint, n = code.polynomial_num, slots = 1u << k;
    const size_t steps = coded.size() / n;
    std::vector<std::vector<uint32_t>> survivor(steps, std::vector<uint32_t>(slots));
    std::vector<uint32_t> before(slots, NEVER), after(slots);
    before[0] = 0;
    for (size_t t = 0; t < steps; ++t) {
        for (uint32_t s = 0; s < slots; ++s) {
            const uint32_t even = (s & ((1u << (k - 2)) - 1)) << 1, input = s >> (k - 2) & 1;
            uint32_t metric[2];
            for (const uint32_t odd : {0u, 1u}) {
                metric[odd] = before[even + odd];
                for (uint32_t i = 0; metric[odd] != NEVER && i < n; ++i) {
                    const uint8_t received = coded[t * n + i];
                    const uint8_t expected = code.output_table[((even + odd) | input << (k - 1)) * n + i];
                    metric[odd] += received == 0xFF || expected == 0xFF ? 0 : received ^ expected;
                }
            }
            const uint32_t chosen = metric[0] > metric[1] ? 1 : 0;
            const bool closed = terminated && steps - t <= k - 1 && s >> (k - 1) != 0;
            after[s] = closed ? NEVER : metric[chosen];
            survivor[t][s] = closed ? 0 : even + chosen;
        }
        std::swap(before, after);
    }
    auto s = static_cast<uint32_t>(std::min_element(before.begin(), before.end()) - before.begin());
    byte_list result(steps);
    for (size_t t = steps; t-- > 0;) {
        result[t] = static_cast<uint8_t>(s >> (k - 2));
        s = survivor[t][s];
    }
    return result;
}

TEST(Viterbi, DecidesAsTheSlotBySlotDecoderTerminatedOrNot)
{
    const std::pair<uint32_t, std::vector<uint32_t>> codes[] = {
        {2, {3, 2}}, {4, {15}}, {5, {25, 23, 21, 27}}, {7, {121, 91}}, {7, {95, 107, 81}}, {9, {367, 435, 458}}};
    std::mt19937 random{7};
    for (const auto& [constraint, polynomials] : codes) {
        const code_ptr code = make_code(constraint, polynomials);
        for (uint32_t round = 0; round < 40; ++round) { // from clean blocks to noise
            byte_list sent(1 + random() % (constraint == 7 ? 600 : 40));
            std::generate(sent.begin(), sent.end(), [&] { return random() & 1; });
            byte_list coded = encoded(code, sent);
            ASSERT_EQ(coded.size(), conv_code_encode_length(code.get(), static_cast<uint32_t>(sent.size())));
            for (uint8_t& bit : coded) {
                if (random() % 40 < round) {
                    bit = static_cast<uint8_t>(round % 4 == 0 ? random() : random() & 1);
                }
                if (round == 39 || (round % 3 == 1 && random() % 4 == 0)) {
                    bit = HOLE; // in the last round everywhere: all paths tie
                }
            }
            coded[random() % coded.size()] ^= round % 4 == 2 ? 2 : 0; // a single strange byte
            const byte_list expected = slot_by_slot(*code, coded, round % 2 == 0);
            ASSERT_EQ(decoded(code, coded, false), expected) << "constraint " << constraint << ", round " << round;
            ASSERT_EQ(decoded(code, coded, true), expected) << "constraint " << constraint << ", round " << round;
        }
    }
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
