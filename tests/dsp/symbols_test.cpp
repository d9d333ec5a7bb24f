// From bits to the values of subcarriers and on to samples, step by step.
#include <cmath>

#include <gtest/gtest.h>

#include "kosc/fft.h"
#include "kosc/ofdm.h"
#include "kosc/papr.h"
#include "kosc/qpsk.h"
#include "kosc/zadoff_chu.h"
#include "support/content.h"

namespace {

const double VALUES[] = {1, 2, -3, 4, 0.5, -6};
const kom_vector_complex THREE = kom_vector_complex_const_view_array(VALUES, 3, 0, 1, 3);

TEST(Ofdm, MirrorsTheSubcarriersInTheUpperHalf)
{
    const std::tuple<uint32_t, uint32_t, double_list> cases[] = // empty: refused
        {{10, 1, {0, 0, 1, 2, -3, 4, .5, -6, 0, 0, 0, 0, 0, 0, .5, 6, -3, -4, 1, -2}},
         {10, 0, {1, 2, -3, 4, .5, -6, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}}, // no room for a mirror
         {10, 2, {}},
         {11, 1, {}},
         {10, 0xFFFFFFFE, {}}};
    for (const auto& [fft_size, start, expected] : cases) {
        const complex_ptr spectrum{ofdm_map_subcarries(&THREE, fft_size, start)};
        EXPECT_EQ(spectrum ? list(spectrum->data, 2 * fft_size) : double_list{}, expected) << start;
    }
    const complex_ptr none{kom_vector_complex_alloc(0)}, silence{ofdm_map_subcarries(none.get(), 8, 3)};
    EXPECT_EQ(list(silence->data, 16), double_list(16));
    EXPECT_EQ(ofdm_demap_subcarries(silence.get(), 6, 3).data, nullptr);
}

TEST(PhasePattern, RefusesWhatIsNotWholePatterns)
{
    const double radians[] = {0, 1, 2, 3};
    const pattern_ptr pattern{calc_phase_pattern(radians, 4)};
    double_list data(14, 3.0);
    for (const uint32_t n : {0u, 2u, 6u, 7u}) {
        EXPECT_FALSE(phase_shift(data.data(), n, pattern.get()) || phase_restore(data.data(), n, pattern.get())) << n;
    }
    EXPECT_EQ(data, double_list(14, 3.0));
}

TEST(DftSpread, SpreadsAnImpulseOverAllValues)
{
    double_list data(2 * 16);
    data[1] = 4;
    EXPECT_TRUE(dft_spread_mod(data.data(), 16));
    for (uint32_t i = 0; i < 2 * 16; ++i) {
        EXPECT_NEAR(data[i], i % 2, 1e-14); // rounding of one transform
    }
}

TEST(DftSpread, ReportsOtherLengthsThanPowersOfTwoUnderFixedLineNumbers)
{
    const log_capture log{KOSC_LEVEL_ERROR};
    double_list data(24, 1.5);
    EXPECT_FALSE(dft_spread_mod(data.data(), 12) || dft_spread_demod(data.data(), 12));
    EXPECT_EQ(log_capture::lines(),
              (text_list{"[ERROR][Dft spread mod: fft failed][19]\n", "[ERROR][Dft spread demod: ifft failed][39]\n"}));
}

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

TEST(ZadoffChu, HasTheKnownPhases)
{
    double odd[2 * 7], even[2 * 8];
    zc(2, 3, 7, odd);
    zc(-1, 2, 8, even);
    EXPECT_NEAR(odd[2 * 2], std::cos(M_PI * 36 / 7), 1e-14); // phases up to 16 radians
    EXPECT_NEAR(even[2 * 3 + 1], std::sin(M_PI * 21 / 8), 1e-14);
    zc(1, 0, -4, nullptr); // writes nothing
}

TEST(Fft, RefusesOtherLengthsThanPowersOfTwoAndLeavesTheDataAlone)
{
    double_list x(32, 1.5);
    for (const uint32_t n : {0u, 3u, 6u, 12u, 0x80000001u}) {
        EXPECT_FALSE(kom_fft_complex_radix2_forward(x.data(), 1, n) || kom_fft_complex_radix2_inverse(x.data(), 1, n));
        EXPECT_EQ(x, double_list(32, 1.5)) << n;
    }
    EXPECT_FALSE(kom_fft_complex_radix2_forward(nullptr, 1, 8) || kom_fft_complex_radix2_inverse(nullptr, 1, 1));
}

} // namespace
