#include "kosc/block_code.h"

#include <gtest/gtest.h>

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
    EXPECT_EQ(decoded(WORDS), DATA);
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

} // namespace
