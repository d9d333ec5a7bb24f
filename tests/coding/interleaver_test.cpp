#include "kosc/interleaver.h"

#include <numeric>

#include <gtest/gtest.h>

#include "support/content.h"

namespace {

TEST(Interleaver, ReadsByColumnsWhatWasWrittenByRowsAndBack)
{
    byte_list in(96);
    std::iota(in.begin(), in.end(), uint8_t{0});
    const auto view = view_of(in);
    for (const uint32_t stride : {1u, 3u, 16u, 48u, 96u}) {
        const bytes_ptr spread{interleaver_encode(&view, stride)};
        const uint32_t rows = 96 / stride;
        for (uint32_t i = 0; i < 96; ++i) {
            ASSERT_EQ(spread->data[i], i / rows + i % rows * stride) << stride;
        }
        EXPECT_EQ(content(bytes_ptr{interleaver_decode(spread.get(), stride)}), in) << stride;
    }
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

} // namespace
