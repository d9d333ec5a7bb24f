// What is compiled for registers of several widths: the same bits in every width that this processor has, and the
// narrow-band inverse transform against the whole one.
#include "dsp/pruned_ifft_engine.h"

#include <cmath>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "kosc/ofdm.h"
#include "math/fft_passes.h"
#include "math/vector_family.h"
#include "sync/normalise.h"
#include "sync/overlap_save_blocks.h"

namespace {

using namespace kosc;

struct band {
    uint32_t symbol_len, start, count;
};

TEST(BandInverse, GivesTheSamplesOfTheWholeTransformInAnyWidth)
{
    const band cases[] = {{1024, 384, 64}, {1024, 447, 64}, {1024, 1, 1},
                          {1024, 63, 33},  {256, 17, 64},   {4096, 900, 60}};
    for (const auto& [symbol_len, start, count] : cases) {
        SCOPED_TRACE(testing::Message() << count << " subcarriers from " << start << " on, of " << symbol_len);
        const owned<pruned_ifft, pruned_ifft_free> engine{pruned_ifft_init(symbol_len, start, count)};
        ASSERT_TRUE(engine);
        const complex_ptr values{kom_vector_complex_alloc(count)};
        for (uint32_t i = 0; i < 2 * count; ++i) {
            values->data[i] = std::sin(1.0 + 7.0 * i * i);
        }
        const complex_ptr spectrum{ofdm_map_subcarries(values.get(), symbol_len, start)};
        const doubles_ptr whole{ofdm_mod_halfcomplex(spectrum.get())};
        std::vector<double> work(pruned_ifft_work(engine.get())), best(symbol_len), narrow(symbol_len);
        pruned_ifft_run(engine.get(), values->data, work.data(), best.data());
        run_pruned_ifft_by_two(engine.get(), values->data, work.data(), narrow.data());
        EXPECT_EQ(best, narrow) << "to the last bit";
        for (uint32_t i = 0; i < symbol_len; ++i) {
            ASSERT_NEAR(best[i], whole->data[i], 1e-14) << i;
        }
    }
    for (const auto& [symbol_len, start, count] : {band{1024, 0, 64}, {1024, 384, 65}, {1024, 448, 64}, {128, 9, 9}}) {
        EXPECT_EQ(pruned_ifft_init(symbol_len, start, count), nullptr) << "left to the whole transform";
    }
}

TEST(FftPasses, GiveTheSameBitsInAnyWidth)
{
    for (uint32_t n = FFT_SHORTEST; n <= FFT_TABLE_LEN; n *= 2) {
        for (const auto& [first, count] : {std::pair{0U, n}, {n / 4, n / 4}, {n / 2 - 1, 1U}, {n / 3, n / 5 + 1}}) {
            fft_work best = {};
            for (uint32_t i = 0; i < n; ++i) {
                best.re[i] = std::sin(1.0 + 7.0 * i * i);
                best.im[i] = i % 4 == 0 ? -0.0 : std::cos(2.0 + 5.0 * i * i);
            }
            fft_work narrow = best;
            run_passes(&best, n, first, count);
            run_passes_by_two(&narrow, n, first, count);
            ASSERT_EQ(std::memcmp(best.re + first, narrow.re + first, count * sizeof(double)), 0) << n << ' ' << first;
            ASSERT_EQ(std::memcmp(best.im + first, narrow.im + first, count * sizeof(double)), 0) << n << ' ' << first;
        }
    }
}

TEST(Correlation, GivesTheSameBitsInAnyWidth)
{
    constexpr uint32_t MOST = 4 * LARGE;
    std::vector<double> signal(MOST + PATTERN_LEN), best(MOST), narrow(MOST);
    for (uint32_t i = 0; i < signal.size(); ++i) {
        signal[i] = 1000.0 * std::sin(1.0 + 7.0 * i * i);
    }
    const owned<overlap_save, overlap_save_free> engine{overlap_save_init(signal.data() + 500)};
    ASSERT_TRUE(engine);
    for (const uint32_t count : {1U, 513U, 514U, 1025U, 1026U, 3073U, MOST}) { // every size of block, alone and mixed
        overlap_save_run(engine.get(), signal.data(), count, best.data());
        run_blocks_by_two(engine.get(), signal.data(), count, narrow.data());
        ASSERT_EQ(std::memcmp(best.data(), narrow.data(), count * sizeof(double)), 0) << count;
        normalise(best.data(), signal.data(), count);
        normalise_narrow(narrow.data(), signal.data(), count);
        ASSERT_EQ(std::memcmp(best.data(), narrow.data(), count * sizeof(double)), 0) << count;
    }
}

} // namespace
