// Twiddle factors of the transforms up to 1024 points.
#ifndef KOSC_MATH_FFT_TABLE_H
#define KOSC_MATH_FFT_TABLE_H

#include <cstdint>

namespace kosc {

constexpr uint32_t FFT_TABLE_LEN = 1024; // longest transform that the table serves

// The pass that joins two transforms of `half_len` points into one of 2*half_len multiplies number a of the second by
// exp(-i*pi*a/half_len), a < half_len: element half_len + a of the table, so that the factors of all passes fill 1 ..
// 1023.
struct alignas(32) fft_table {
    double re[FFT_TABLE_LEN] = {};
    double im[FFT_TABLE_LEN] = {};
};

// sin(theta) and sin(theta/2) for theta = pi/half_len: constants, because a mathematics library may round them
// otherwise.
struct pass_angle {
    double sine;
    double half_sine;
};

constexpr pass_angle PASS_ANGLES[] = {
    {0x1.1a62633145c07p-53, 0x1.0000000000000p+0}, // half_len 1
    {0x1.0000000000000p+0, 0x1.6a09e667f3bccp-1},  // half_len 2
    {0x1.6a09e667f3bccp-1, 0x1.87de2a6aea963p-2},  // half_len 4
    {0x1.87de2a6aea963p-2, 0x1.8f8b83c69a60ap-3},  // half_len 8
    {0x1.8f8b83c69a60ap-3, 0x1.917a6bc29b42cp-4},  // half_len 16
    {0x1.917a6bc29b42cp-4, 0x1.91f65f10dd814p-5},  // half_len 32
    {0x1.91f65f10dd814p-5, 0x1.92155f7a3667ep-6},  // half_len 64
    {0x1.92155f7a3667ep-6, 0x1.921d1fcdec784p-7},  // half_len 128
    {0x1.921d1fcdec784p-7, 0x1.921f0fe670071p-8},  // half_len 256
    {0x1.921f0fe670071p-8, 0x1.921f8becca4bap-9},  // half_len 512
};

// The factors by the recurrence w(a + 1) = w(a) + w(a)*(-2*sin^2(theta/2) - i*sin(theta)). They differ from exact ones
// by some rounding errors, which are part of every frame that is on the air: senders and receivers agree on them.
// Source: Singleton 1967, "On computing the fast Fourier transform".
constexpr void fill_fft_table(fft_table* table)
{
    uint32_t half_len = 1;
    for (const pass_angle& angle : PASS_ANGLES) {
        const double s = -angle.sine;
        const double s2 = 2.0 * angle.half_sine * angle.half_sine;
        double re = 1.0;
        double im = 0.0;
        for (uint32_t a = 0; a < half_len; ++a) {
            table->re[half_len + a] = re;
            table->im[half_len + a] = im;
            const double next_re = re - s * im - s2 * re;
            im = im + s * re - s2 * im;
            re = next_re;
        }
        half_len *= 2;
    }
}

// Filled when the library is loaded: as a constant it would be a tenth of the library. Until then, as in a host's own
// static constructors, transforms take other ways to the same numbers.
extern fft_table FFT_TABLE;
extern bool FFT_TABLE_READY;

} // namespace kosc

#endif
