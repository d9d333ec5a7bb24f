#include "kosc/ofdm.h"

#include <gtest/gtest.h>

#include "support/content.h"

namespace {

const double VALUES[] = {1, 2, -3, 4, 0.5, -6};
const kom_vector_complex THREE = kom_vector_complex_const_view_array(VALUES, 3, 0, 1, 3);

TEST(Ofdm, MirrorsTheSubcarriersInTheUpperHalf)
{
    const struct {
        uint32_t fft_size, start;
        double_list expected; // empty: refused
    } cases[] = {{10, 1, {0, 0, 1, 2, -3, 4, .5, -6, 0, 0, 0, 0, 0, 0, .5, 6, -3, -4, 1, -2}},
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
}

TEST(Ofdm, FindsInARealSymbolWhatWasMappedToIt)
{
    const complex_ptr spectrum{ofdm_map_subcarries(&THREE, 64, 7)};
    const doubles_ptr symbol{ofdm_mod_halfcomplex(spectrum.get())};
    const complex_ptr received{ofdm_demod_real(symbol.get())};
    const auto values = ofdm_demap_subcarries(received.get(), 7, 3);
    for (uint32_t k = 0; k < 6; ++k) {
        EXPECT_NEAR(values.data[k], VALUES[k], 1e-13); // two transforms of 64 points
    }
    EXPECT_EQ(ofdm_demap_subcarries(received.get(), 62, 3).data, nullptr);
    const auto real = kom_vector_const_view_array(VALUES, 6, 0, 1, 6);
    EXPECT_TRUE(!ofdm_mod_halfcomplex(&THREE) && !ofdm_demod_real(&real)); // no powers of two
}

} // namespace
