#include "kosc/qpsk.h"

#include <cmath>

#include <gtest/gtest.h>

#include "support/content.h"

namespace {

TEST(Qpsk, MapsPairsOfBitsToTheFourCornersAndBack)
{
    constexpr double A = 0.7071067811865475;            // exactly this double, one unit below the nearest to 1/sqrt(2)
    const byte_list in = {0, 0, 0, 1, 1, 0, 2, 255, 1}; // any non-zero byte is a one, a lone bit is left out
    const auto view = view_of(in);
    const complex_ptr symbols{qpsk_mod(&view)};
    ASSERT_EQ(symbols->size, 4u);
    EXPECT_EQ(list(symbols->data, 8), (double_list{-A, -A, -A, A, A, -A, A, A}));
    EXPECT_EQ(content(bytes_ptr{qpsk_demod(symbols.get())}), bits("00 01 10 11"));
    const double odd[] = {0.0, -0.0, NAN, -1e-300, INFINITY, -INFINITY}; // all that is not below zero is a one
    const auto odd_symbols = kom_vector_complex_const_view_array(odd, 3, 0, 1, 3);
    EXPECT_EQ(content(bytes_ptr{qpsk_demod(&odd_symbols)}), bits("11 10 10"));
}

} // namespace
