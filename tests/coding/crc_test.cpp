#include "kosc/crc.h"

#include <numeric>

#include <gtest/gtest.h>

#include "support/content.h"

namespace {

const byte_list DIGITS = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};

TEST(Crc, HasThePublishedCheckValues)
{
    uint8_t out[2];
    EXPECT_TRUE(crc16(out, DIGITS.data(), 9));
    EXPECT_EQ(list(out, 2), (byte_list{0x37, 0x4B})); // CRC-16/MODBUS of the nine digits is 0x4B37
    EXPECT_EQ(crc_update(crc_update(0xFFFF, DIGITS.data(), 4), DIGITS.data() + 4, 5), 0x4B37);
    EXPECT_TRUE(crc16(out, DIGITS.data(), 0));
    EXPECT_EQ(list(out, 2), (byte_list{0xFF, 0xFF}));
    EXPECT_EQ(POLY, 0xA001);
}

// The bytes 00..0D and 0E..1B have the CRCs 0xFABC and 0xABF6; what lies between does not count.
TEST(Crc, CoversEqualPartsWhereverTheirCrcsLie)
{
    const struct {
        crc_cfg cfg;
        size_t gap; // bytes behind the first part
        uint32_t returned;
    } cases[] = {{{16, 2, KOSC_CRC_AT_LAST}, 0, 4}, {{16, 2, KOSC_CRC_AFTER_EVERY_PART}, 2, 4},
                 {{7, 2, KOSC_CRC_AT_LAST}, 0, 0},  {{8, 2, KOSC_CRC_AFTER_EVERY_PART}, 1, 2},
                 {{32, 2, KOSC_CRC_AT_LAST}, 0, 8}, {{32, 2, KOSC_CRC_AFTER_EVERY_PART}, 4, 8}};
    for (const auto& c : cases) {
        byte_list data(28), out(4); // two bytes a part whatever the width says, and not one more
        std::iota(data.begin(), data.end(), uint8_t{0});
        data.insert(data.begin() + 14, c.gap, 0xEE);
        EXPECT_EQ(calculate_crc(data.data(), 28, &c.cfg, out.data()), c.returned) << c.cfg.bits << " bits";
        EXPECT_EQ(out, (byte_list{0xFA, 0xBC, 0xAB, 0xF6})) << c.cfg.bits << " bits";
    }
    const log_capture log;
    uint8_t out[2];
    const crc_cfg whole = {16, 1, KOSC_CRC_AT_LAST}, elsewhere = {16, 1, 2};
    EXPECT_EQ(calculate_crc(DIGITS.data(), 9, &elsewhere, out) + calculate_crc(nullptr, 9, &whole, out), 0u);
    EXPECT_EQ(logged(), text_list{"ERROR Calc crc failed."});
}

TEST(Bits, AreTheMostSignificantFirst)
{
    const byte_list bytes = {0xA5, 0x01}, expanded = bits("1010 0101 0000 0001");
    const auto bytes_view = view_of(bytes), bits_view = view_of(expanded);
    EXPECT_EQ(content(bytes_ptr{vector_byte_to_binary(&bytes_view)}), expanded);
    EXPECT_EQ(content(bytes_ptr{vector_binary_to_byte(&bits_view)}), bytes);
    byte_list out = {0xEE, 0xEE};
    EXPECT_TRUE(bin2byte(out.data(), expanded.data(), 12)); // four bits are no byte
    EXPECT_EQ(out, (byte_list{0xA5, 0xEE}));
    const uint8_t odd[8] = {0, 0, 0, 0, 0, 0, 1, 0xFF}; // summed modulo 256: 2 + 255
    EXPECT_TRUE(bin2byte(out.data(), odd, 8));
    EXPECT_EQ(out[0], 1);
    EXPECT_FALSE(byte2bin(out.data(), odd, 0) || bin2byte(out.data(), odd, 0));
}

} // namespace
