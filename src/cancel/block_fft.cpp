#include "cancel/block_fft.h"

#include <cmath>

#include "kosc/fft.h"
#include "math/complex_ops.h"
#include "math/constants.h"

namespace kosc {
namespace {

constexpr uint32_t HALF = BLOCK_LEN / 2; // what the library's tables serve

} // namespace

void init_block_fft(block_fft* fft)
{
    for (uint32_t k = 0; k < HALF; ++k) {
        store(fft->twiddle, k, {std::cos(2 * PI * k / BLOCK_LEN), -std::sin(2 * PI * k / BLOCK_LEN)});
    }
}

void transform_block(const block_fft& fft, double* data, double* out)
{
    kom_fft_complex_radix2_forward(data, 2, HALF); // the even ones
    kom_fft_complex_radix2_forward(data + 2, 2, HALF);
    for (uint32_t k = 0; k < HALF; ++k) {
        const kom_complex a = load(data, size_t{2} * k);
        const kom_complex b = load(data, size_t{2} * k + 1) * load(fft.twiddle, k);
        store(out, k, a + b);
        store(out, k + HALF, a - b);
    }
}

// The inverse transform is the forward one between two conjugations.
void filter_block(const double* spectrum, bool reversed, block_fft* fft, double* data)
{
    transform_block(*fft, data, fft->scratch);
    const double sign = reversed ? -1.0 : 1.0;
    for (uint32_t k = 0; k < BLOCK_LEN; ++k) {
        const kom_complex z = load(fft->scratch, k);
        const double re = spectrum[2 * k];
        const double im = sign * spectrum[2 * k + 1];
        store(fft->scratch, k, {z.re * re - z.im * im, -(z.re * im + z.im * re)});
    }
    transform_block(*fft, fft->scratch, data);
    for (uint32_t k = 0; k < BLOCK_LEN; ++k) {
        data[2 * k] *= 1.0 / BLOCK_LEN;
        data[2 * k + 1] *= -1.0 / BLOCK_LEN;
    }
}

} // namespace kosc
