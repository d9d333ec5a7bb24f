#include "combine/float_fft.h"

#include <algorithm>
#include <cmath>

#include "math/constants.h"

namespace kosc {
namespace {

// Pointers to real and imaginary parts; swapped, the transform runs back.
struct parts {
    float* re;
    float* im;
};

// One pass of radix 4: transforms of n points, `stride` of them side by side, become four times as many of n/4.
void pass_by_four(const float_fft& fft, uint32_t n, uint32_t stride, parts x, parts y)
{
    const uint32_t quarter = n / 4;
    for (uint32_t p = 0; p < quarter; ++p) {
        const uint32_t turn = p * stride;
        const float c1 = fft.cos_of[turn];
        const float s1 = fft.minus_sin_of[turn];
        const float c2 = fft.cos_of[2 * turn];
        const float s2 = fft.minus_sin_of[2 * turn];
        const float c3 = fft.cos_of[3 * turn];
        const float s3 = fft.minus_sin_of[3 * turn];
        const uint32_t in = stride * p;
        const uint32_t step = stride * quarter;
        const uint32_t out = stride * 4 * p;
        for (uint32_t q = 0; q < stride; ++q) {
            const uint32_t i = in + q;
            const float sum_re = x.re[i] + x.re[i + 2 * step];
            const float sum_im = x.im[i] + x.im[i + 2 * step];
            const float dif_re = x.re[i] - x.re[i + 2 * step];
            const float dif_im = x.im[i] - x.im[i + 2 * step];
            const float odd_re = x.re[i + step] + x.re[i + 3 * step];
            const float odd_im = x.im[i + step] + x.im[i + 3 * step];
            const float rot_re = x.im[i + step] - x.im[i + 3 * step]; // -j times the difference
            const float rot_im = x.re[i + 3 * step] - x.re[i + step];
            const uint32_t o = out + q;
            y.re[o] = sum_re + odd_re;
            y.im[o] = sum_im + odd_im;
            const float re1 = dif_re + rot_re;
            const float im1 = dif_im + rot_im;
            y.re[o + stride] = re1 * c1 - im1 * s1;
            y.im[o + stride] = re1 * s1 + im1 * c1;
            const float re2 = sum_re - odd_re;
            const float im2 = sum_im - odd_im;
            y.re[o + 2 * stride] = re2 * c2 - im2 * s2;
            y.im[o + 2 * stride] = re2 * s2 + im2 * c2;
            const float re3 = dif_re - rot_re;
            const float im3 = dif_im - rot_im;
            y.re[o + 3 * stride] = re3 * c3 - im3 * s3;
            y.im[o + 3 * stride] = re3 * s3 + im3 * c3;
        }
    }
}

void run(const float_fft& fft, parts x, parts y)
{
    for (uint32_t n = FLOAT_FFT_LEN; n > 2; n /= 4) {
        pass_by_four(fft, n, FLOAT_FFT_LEN / n, x, y);
        std::swap(x, y);
    }
    // Four passes have brought it back to where it was; the last one needs no other place.
    constexpr uint32_t HALF = FLOAT_FFT_LEN / 2;
    for (uint32_t q = 0; q < HALF; ++q) {
        const float re = x.re[q];
        const float im = x.im[q];
        x.re[q] = re + x.re[q + HALF];
        x.im[q] = im + x.im[q + HALF];
        x.re[q + HALF] = re - x.re[q + HALF];
        x.im[q + HALF] = im - x.im[q + HALF];
    }
}

} // namespace

void init_float_fft(float_fft* fft)
{
    for (uint32_t k = 0; k < FLOAT_FFT_LEN; ++k) {
        const double angle = 2 * PI * k / FLOAT_FFT_LEN;
        fft->cos_of[k] = static_cast<float>(std::cos(angle));
        fft->minus_sin_of[k] = static_cast<float>(-std::sin(angle));
    }
}

void transform(const float_fft& fft, float_points* points, float_points* spare)
{
    run(fft, {points->re, points->im}, {spare->re, spare->im});
}

void transform_back(const float_fft& fft, float_points* points, float_points* spare)
{
    run(fft, {points->im, points->re}, {spare->im, spare->re});
}

} // namespace kosc
