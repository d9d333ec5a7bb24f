// Well-known libraries at comparable work, where their packages are installed.
#include <complex>

#include <benchmark/benchmark.h>

#include "noise.h"

#ifdef KOSC_HAS_FFTW
#include <fftw3.h>

namespace {

void fft_1024_fftw(benchmark::State& state)
{
    std::vector<std::complex<double>> data(1024, 0.5);
    auto* const numbers = reinterpret_cast<fftw_complex*>(data.data());
    const fftw_plan forward = fftw_plan_dft_1d(1024, numbers, numbers, FFTW_FORWARD, FFTW_MEASURE);
    const fftw_plan back = fftw_plan_dft_1d(1024, numbers, numbers, FFTW_BACKWARD, FFTW_MEASURE);
    for (auto iteration : state) {
        fftw_execute(forward);
        fftw_execute(back);
        for (auto& number : data) {
            number /= 1024.0; // as the inverse transform here does
        }
        benchmark::DoNotOptimize(data.data());
    }
    fftw_destroy_plan(forward);
    fftw_destroy_plan(back);
}

} // namespace

BENCHMARK(fft_1024_fftw)->Unit(benchmark::kMicrosecond);
#endif

#ifdef KOSC_HAS_FEC
extern "C" {
#include <fec.h>
}

namespace {

// 256 bits and their tail at rate 1/2, soft values in bytes.
void viterbi_fec_27(benchmark::State& state)
{
    constexpr int BITS = 256;
    constexpr int TAIL = 6;
    void* const decoder = create_viterbi27(BITS);
    std::mt19937 generator{3};
    std::vector<uint8_t> symbols(2 * (BITS + TAIL));
    std::generate(symbols.begin(), symbols.end(), [&] { return static_cast<uint8_t>(generator()); });
    uint8_t decoded[BITS / 8];
    for (auto iteration : state) {
        init_viterbi27(decoder, 0);
        update_viterbi27_blk(decoder, symbols.data(), BITS + TAIL);
        chainback_viterbi27(decoder, decoded, BITS, 0);
        benchmark::DoNotOptimize(decoded);
    }
    delete_viterbi27(decoder);
}

} // namespace

BENCHMARK(viterbi_fec_27)->Unit(benchmark::kMicrosecond);
#endif
