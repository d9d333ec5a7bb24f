// What the coders do to a block besides the convolutional code.
#include <algorithm>
#include <numeric>

#include <gtest/gtest.h>

#include "kosc/block_code.h"
#include "kosc/crc.h"
#include "kosc/interleaver.h"
#include "kosc/puncture.h"
#include "support/content.h"

namespace {

byte_list decoded(const byte_list& word)
{
    const auto view = view_of(word);
    return content(bytes_ptr{decode82(&view)});
}

const byte_list DATA = bits("00 10 01 11"), WORDS = bits("00000000 00111110 11110001 11001111");

TEST(BlockCode, CorrectsAnyTwoErrorsInItsFourCodeWords)
{
    const auto view = view_of(DATA);
    EXPECT_EQ(content(bytes_ptr{encode82(&view)}), WORDS);
    for (size_t first = 0; first < 8; ++first) {
        for (size_t second = first; second < 8; ++second) {
            byte_list received = WORDS;
            for (size_t word = 0; word < received.size(); word += 8) {
                received[word + first] ^= 1;
                received[word + second] ^= second != first ? 1 : 0; // the same twice: a single error
            }
            EXPECT_EQ(decoded(received), DATA) << "errors at " << first << " and " << second;
        }
    }
}

// The 27 patterns of three errors that complete the table, where another choice would do as well: both ends must agree.
TEST(BlockCode, CorrectsTheChosenHeavierPatterns)
{
    EXPECT_EQ(decoded(bits("10000011 01010100 01011000 01100010 01100100 01101000 01010010 10000101 01000110 01000011 "
                           "10010100 10011000 10100010 10100100 10101000 10010010 01000101 10000110 11000100 00000111 "
                           "00100101 00101001 00010011 00010101 00011001 00100011 00001101")),
              byte_list(2 * 27));
}

TEST(BlockCode, RefusesWhatIsNotWholeBlocks)
{
    const auto seven = kom_vector_uint8_const_view_array(DATA.data(), 8, 0, 1, 7);
    EXPECT_TRUE(!encode82(&seven) && !decode82(&seven) && !linear_encode(&seven, DATA.data(), 8, 0));
    EXPECT_EQ(syndrome_decode(&seven, DATA.data(), DATA.data(), 7, 8), nullptr); // more data than word
}

const byte_list DIGITS = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};

TEST(Crc, HasThePublishedCheckValues)
{
    uint8_t out[2];
    EXPECT_TRUE(crc16(out, DIGITS.data(), 9));
    EXPECT_EQ(list(out, 2), (byte_list{0x37, 0x4B})); // CRC-16/MODBUS of the nine digits is 0x4B37
    EXPECT_EQ(crc_update(crc_update(0xFFFF, DIGITS.data(), 4), DIGITS.data() + 4, 5), 0x4B37);
}

// The bytes 00..0D and 0E..1B have the CRCs 0xFABC and 0xABF6; what lies between does not count.
TEST(Crc, CoversEqualPartsWhereverTheirCrcsLie)
{
    for (const uint32_t width : {7U, 8U, 16U, 32U}) {
        for (const uint32_t put_crc : {KOSC_CRC_AT_LAST, KOSC_CRC_AFTER_EVERY_PART}) {
            const crc_cfg cfg = {width, 2, put_crc};
            byte_list data(28), out(4); // two bytes a part whatever the width says, and not one more
            std::iota(data.begin(), data.end(), uint8_t{0});
            data.insert(data.begin() + 14, put_crc == KOSC_CRC_AT_LAST ? 0 : width / 8, 0xEE);
            EXPECT_EQ(calculate_crc(data.data(), 28, &cfg, out.data()), 2 * (width / 8));
            EXPECT_EQ(out, (byte_list{0xFA, 0xBC, 0xAB, 0xF6})) << width << " bits, " << put_crc;
        }
    }
    const log_capture log;
    uint8_t out[2];
    const crc_cfg whole = {16, 1, KOSC_CRC_AT_LAST}, elsewhere = {16, 1, 2};
    EXPECT_EQ(calculate_crc(DIGITS.data(), 9, &elsewhere, out) + calculate_crc(nullptr, 9, &whole, out), 0u);
    EXPECT_EQ(logged(), text_list{"ERROR Calc crc failed."});
}

TEST(Bits, AreTheMostSignificantFirst)
{
    const byte_list expanded = bits("1010 0101 0000 0001");
    byte_list out = {0xEE, 0xEE};
    EXPECT_TRUE(bin2byte(out.data(), expanded.data(), 12)); // four bits are no byte
    EXPECT_EQ(out, (byte_list{0xA5, 0xEE}));
    const uint8_t odd[8] = {0, 0, 0, 0, 0, 0, 1, 0xFF}; // summed modulo 256: 2 + 255
    EXPECT_TRUE(bin2byte(out.data(), odd, 8));
    EXPECT_EQ(out[0], 1);
    EXPECT_FALSE(byte2bin(out.data(), odd, 0) || bin2byte(out.data(), odd, 0));
}

TEST(Interleaver, CopesWithStridesThatDoNotDivideTheSize)
{
    const byte_list in = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
    const auto view = view_of(in);
    EXPECT_EQ(content(bytes_ptr{interleaver_encode(&view, 4)}), (byte_list{1, 5, 2, 6, 3, 7, 4, 8, 0, 0, 0}));
    EXPECT_EQ(content(bytes_ptr{interleaver_decode(&view, 4)}), (byte_list{1, 3, 5, 7, 9, 2, 4, 6, 8, 10, 0}));
    EXPECT_EQ(content(bytes_ptr{interleaver_encode(&view, 0xFFFFFFFF)}), byte_list(11));
    EXPECT_EQ(interleaver_decode(&view, 12), nullptr);
    EXPECT_TRUE(!interleaver_encode(&view, 0) && !interleaver_decode(&view, 0) && !interleaver_encode(nullptr, 4));
}

TEST(PunchTemplate, IsRefusedUnlessItKeepsHalfOrMoreAndNotAll)
{
    for (const auto& [total, kept] : {std::pair{786u, 786u}, {10u, 11u}, {10u, 4u}, {0u, 0u}, {5u, 0u}}) {
        EXPECT_EQ(get_punch_template(total, kept), nullptr) << total << " to " << kept;
    }
}

// Five of ten bits go although only four were to: what is left over is zero, and nothing lies outside.
TEST(Puncture, FillsUpWhatAShortTemplateRemovesTooMuch)
{
    const punch_ptr t{get_punch_template(10, 6)};
    const byte_list in = {10, 11, 12, 13, 14, 15, 16, 17, 18, 19};
    byte_list out(6, 0xEE), restored(10);
    ASSERT_TRUE(punch_code(t.get(), in.data(), 10, out.data(), 6));
    EXPECT_EQ(out, (byte_list{10, 12, 14, 16, 18, 0}));
    ASSERT_TRUE(depunch_code(t.get(), out.data(), 6, restored.data(), 10));
    EXPECT_EQ(restored, (byte_list{10, 255, 12, 255, 14, 255, 16, 255, 18, 255}));
    EXPECT_FALSE(punch_code(t.get(), in.data(), 10, out.data(), 5) || punch_code(t.get(), in.data(), 9, out.data(), 6));
    EXPECT_FALSE(depunch_code(t.get(), out.data(), 5, restored.data(), 10));
}

TEST(Puncture, StaysInsideItsBuffersWithImpossibleTemplates)
{
    for (const punch_template_t& t : {punch_template_t{10, 6, 4, 1, 0},
                                      {10, 6, 4, 40, 2},
                                      {10, 6, 400, 1, 2},
                                      {4, 6, 4, 1, 2},
                                      {10, 9, 1, 0, 20},
                                      {10, 6, 4, 0xFFFFFFFF, 0x80000000}}) {
        const byte_list in(t.total_len, 1);
        byte_list out(t.kept_len, 0xEE), restored(t.total_len); // on the heap, where sanitizers see a byte outside
        const bool possible = t.step != 0;
        EXPECT_EQ(punch_code(&t, in.data(), t.total_len, out.data(), t.kept_len), possible);
        EXPECT_EQ(std::count(out.begin(), out.end(), 0xEE), possible ? 0 : 6); // every place is written
        EXPECT_EQ(depunch_code(&t, out.data(), t.kept_len, restored.data(), t.total_len), possible);
        EXPECT_TRUE(punch_code_inplace(&t, restored.data(), t.total_len));
    }
}

} // namespace
