#include "kosc/puncture.h"

#include <numeric>

#include <gtest/gtest.h>

#include "support/content.h"

namespace {

TEST(PunchTemplate, SpreadsTheRemovedBitsEvenly)
{
    const std::vector<uint32_t> cases[] = {{786, 768, 18, 21, 43}, {10, 6, 4, 1, 2}, {10, 5, 5, 1, 2}, {7, 6, 1, 3, 7}};
    for (const auto& expected : cases) {
        const punch_ptr t{get_punch_template(expected[0], expected[1])};
        ASSERT_NE(t, nullptr);
        EXPECT_EQ((std::vector{t->total_len, t->kept_len, t->removed_len, t->offset, t->step}), expected);
    }
    for (const auto& [total, kept] : {std::pair{786u, 786u}, {10u, 11u}, {10u, 4u}, {0u, 0u}, {5u, 0u}}) {
        EXPECT_EQ(get_punch_template(total, kept), nullptr) << total << " to " << kept;
    }
}

TEST(Puncture, LeavesHolesWhereBitsWereRemoved)
{
    byte_list sent(786), kept(768), restored(786), expected;
    std::iota(sent.begin(), sent.end(), uint8_t{0});
    expected = sent;
    for (size_t removed = 21; removed <= 752; removed += 43) {
        expected[removed] = hole();
    }
    const punch_ptr t{get_punch_template(786, 768)};
    EXPECT_TRUE(punch_code(t.get(), sent.data(), 786, kept.data(), 768));
    EXPECT_TRUE(depunch_code(t.get(), kept.data(), 768, restored.data(), 786));
    EXPECT_TRUE(punch_code_inplace(t.get(), sent.data(), 786));
    EXPECT_EQ(restored, expected);
    EXPECT_EQ(sent, expected);
    EXPECT_TRUE(HOLE == 0xFF && hole() == 0xFF);
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
