#include "combine/float_fft.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <initializer_list>

#include "math/constants.h"

namespace kosc {
namespace {

// Pointers to real and imaginary parts; swapped, the transform runs back.
struct parts {
    float* re;
    float* im;
};

// Four neighbours in a machine register.
typedef float quad __attribute__((vector_size(16)));

template <typename T> T load_floats(const float* from)
{
    T v;
    std::memcpy(&v, from, sizeof(v));
    return v;
}

template <typename T> void store_floats(float* to, T v) { std::memcpy(to, &v, sizeof(v)); }

// One pass of radix 4: transforms of n points, `stride` of them side by side, become four times as many of n/4. T is
// what is worked on at once.
template <typename T> void pass_by_four(const float_fft& fft, uint32_t n, uint32_t stride, parts x, parts y)
{
    const uint32_t quarter = n / 4;
    const uint32_t step = stride * quarter;
    for (uint32_t p = 0; p < quarter; ++p) {
        const uint32_t turn = p * stride;
        const float c1 = fft.cos_of[turn];
        const float s1 = fft.minus_sin_of[turn];
        const float c2 = fft.cos_of[2 * turn];
        const float s2 = fft.minus_sin_of[2 * turn];
        const float c3 = fft.cos_of[3 * turn];
        const float s3 = fft.minus_sin_of[3 * turn];
        for (uint32_t q = 0; q < stride; q += sizeof(T) / sizeof(float)) {
            const uint32_t i = stride * p + q;
            const T re_0 = load_floats<T>(x.re + i);
            const T im_0 = load_floats<T>(x.im + i);
            const T re_1 = load_floats<T>(x.re + i + step);
            const T im_1 = load_floats<T>(x.im + i + step);
            const T re_2 = load_floats<T>(x.re + i + 2 * step);
            const T im_2 = load_floats<T>(x.im + i + 2 * step);
            const T re_3 = load_floats<T>(x.re + i + 3 * step);
            const T im_3 = load_floats<T>(x.im + i + 3 * step);
            const T sum_re = re_0 + re_2;
            const T sum_im = im_0 + im_2;
            const T dif_re = re_0 - re_2;
            const T dif_im = im_0 - im_2;
            const T odd_re = re_1 + re_3;
            const T odd_im = im_1 + im_3;
            const T rot_re = im_1 - im_3; // -j times the difference
            const T rot_im = re_3 - re_1;
            const uint32_t o = stride * 4 * p + q;
            const auto put = [&](uint32_t at, T re, T im, float c, float s) {
                store_floats(y.re + at, re * c - im * s);
                store_floats(y.im + at, re * s + im * c);
            };
            store_floats(y.re + o, sum_re + odd_re);
            store_floats(y.im + o, sum_im + odd_im);
            put(o + stride, dif_re + rot_re, dif_im + rot_im, c1, s1);
            put(o + 2 * stride, sum_re - odd_re, sum_im - odd_im, c2, s2);
            put(o + 3 * stride, dif_re - rot_re, dif_im - rot_im, c3, s3);
        }
    }
}

void run(const float_fft& fft, parts x, parts y)
{
    pass_by_four<float>(fft, FLOAT_FFT_LEN, 1, x, y);
    std::swap(x, y);
    for (uint32_t n = FLOAT_FFT_LEN / 4; n > 2; n /= 4) {
        pass_by_four<quad>(fft, n, FLOAT_FFT_LEN / n, x, y);
        std::swap(x, y);
    }
    // Four passes have brought it back to where it was; the last one needs no other place.
    constexpr uint32_t HALF = FLOAT_FFT_LEN / 2;
    for (float* const part : {x.re, x.im}) {
        for (uint32_t q = 0; q < HALF; q += sizeof(quad) / sizeof(float)) {
            const auto a = load_floats<quad>(part + q);
            const auto b = load_floats<quad>(part + q + HALF);
            store_floats(part + q, a + b);
            store_floats(part + q + HALF, a - b);
        }
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
