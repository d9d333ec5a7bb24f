// Transforms of a part of a signal or spectrum against the whole ones; and what is compiled for registers of several
// widths: the same bits in every width that this processor has.
#include <cmath>
#include <complex>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "dsp/goertzel.h"
#include "dsp/pruned_ifft_engine.h"
#include "kosc/fft.h"
#include "kosc/ofdm.h"
#include "math/fft_bins.h"
#include "math/fft_passes.h"
#include "math/vector_family.h"
#include "sync/normalise.h"
#include "sync/overlap_save_blocks.h"

namespace {

using namespace kosc;

// A signal with something in every bin.
std::vector<double> test_signal(size_t length, double level = 1.0)
{
    std::vector<double> x(length);
    for (size_t n = 0; n < length; ++n) {
        x[n] = level * std::sin(1.0 + 7.0 * static_cast<double>(n * n));
    }
    return x;
}

struct band {
    uint32_t symbol_len, start, count;
};

// Spectrum values between the grid points of an FFT, against their defining sum.
TEST(Goertzel, SumsWithPhasesFromTheMiddleOfEvenAndOddLengths)
{
    constexpr uint32_t COUNT = 5;
    constexpr double FIRST = 2.3561, STEP = 0.0061;
    for (const uint32_t length : {1024U, 255U}) {
        const std::vector<double> x = test_signal(length);
        std::vector<double> work(3 * COUNT), found(2 * COUNT);
        goertzel(x.data(), length, FIRST, STEP, COUNT, work.data(), found.data());
        for (uint32_t k = 0; k < COUNT; ++k) {
            std::complex<double> sum = {-found[2 * k], -found[2 * k + 1]};
            for (uint32_t n = 0; n < length; ++n) {
                sum += x[n] * std::polar(1.0, -(FIRST + k * STEP) * (n - (length - 1) / 2.0));
            }
            EXPECT_NEAR(std::abs(sum), 0.0, 1e-9) << length;
        }
    }
}

TEST(FftBins, AreThoseOfTheWholeTransformToTheLastBit)
{
    for (const auto& [n, first, count] : {band{1024, 384, 64},
                                          {1024, 385, 63},
                                          {1024, 0, 1024},
                                          {1024, 511, 3},
                                          {256, 3, 70},
                                          {1024, 100, 1},
                                          {8, 5, 2},
                                          {4, 0, 4}}) {
        const std::vector<double> samples = test_signal(n);
        std::vector<double> whole(2 * n), bins(2 * count);
        for (uint32_t i = 0; i < n; ++i) {
            whole[2 * i] = samples[i];
        }
        ASSERT_TRUE(kom_fft_complex_radix2_forward(whole.data(), 1, n));
        ASSERT_TRUE(fft_real_bins(samples.data(), n, first, count, bins.data()));
        EXPECT_EQ(std::memcmp(bins.data(), &whole[2 * first], bins.size() * sizeof(double)), 0)
            << count << " of " << n << " from " << first;
    }
}

TEST(BandInverse, GivesTheSamplesOfTheWholeTransformInAnyWidth)
{
    const band cases[] = {{1024, 384, 64}, {1024, 447, 64}, {1024, 1, 1},
                          {1024, 63, 33},  {256, 17, 64},   {4096, 900, 60}};
    for (const auto& [symbol_len, start, count] : cases) {
        SCOPED_TRACE(testing::Message() << count << " subcarriers from " << start << " on, of " << symbol_len);
        const owned<pruned_ifft, pruned_ifft_free> engine{pruned_ifft_init(symbol_len, start, count)};
        ASSERT_TRUE(engine);
        const complex_ptr values{kom_vector_complex_alloc(count)};
        const std::vector<double> parts = test_signal(2 * count);
        std::copy(parts.begin(), parts.end(), values->data);
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
    const std::vector<double> signal = test_signal(MOST + PATTERN_LEN, 1000.0);
    std::vector<double> best(MOST), narrow(MOST);
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
