#include "cancel/block_fft.h"

#include <cmath>

#include "kosc/fft.h"
#include "math/complex_ops.h"
#include "math/constants.h"

namespace kosc {
namespace {

constexpr uint32_t HALF = BLOCK_LEN / 2; // what the library's tables serve

void split(const double* data, block_fft* fft)
{
    for (uint32_t k = 0; k < HALF; ++k) {
        store(fft->even, k, load(data, size_t{2} * k));
        store(fft->odd, k, load(data, size_t{2} * k + 1));
    }
}

} // namespace

void init_block_fft(block_fft* fft)
{
    for (uint32_t k = 0; k < HALF; ++k) {
        store(fft->twiddle, k, {std::cos(2 * PI * k / BLOCK_LEN), -std::sin(2 * PI * k / BLOCK_LEN)});
    }
}

void transform_block(block_fft* fft, double* data)
{
    split(data, fft);
    kom_fft_complex_radix2_forward(fft->even, 1, HALF);
    kom_fft_complex_radix2_forward(fft->odd, 1, HALF);
    for (uint32_t k = 0; k < HALF; ++k) {
        const kom_complex a = load(fft->even, k);
        const kom_complex b = load(fft->odd, k) * load(fft->twiddle, k);
        store(data, k, a + b);
        store(data, k + HALF, a - b);
    }
}

void invert_block(block_fft* fft, double* data)
{
    split(data, fft);
    kom_fft_complex_radix2_inverse(fft->even, 1, HALF);
    kom_fft_complex_radix2_inverse(fft->odd, 1, HALF);
    for (uint32_t k = 0; k < HALF; ++k) {
        const kom_complex turn = load(fft->twiddle, k);
        const kom_complex a = load(fft->even, k);
        const kom_complex b = load(fft->odd, k) * kom_complex{turn.re, -turn.im};
        store(data, k, {(a.re + b.re) / 2, (a.im + b.im) / 2});
        store(data, k + HALF, {(a.re - b.re) / 2, (a.im - b.im) / 2});
    }
}

} // namespace kosc
