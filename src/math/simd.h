// The doubles of one machine register, through the compilers' vector extension: SSE2, NEON and WebAssembly alike. The
// lanes of a register do not mix in arithmetic, so that every lane has the bits that a double alone would have.
//
// Registers have two lanes. A file that is also compiled for registers of four has KOSC_SIMD_BYTES 32 there. The
// functions for the two widths lie in different namespaces, so that no linker puts those for wide registers into other
// files.
#ifndef KOSC_MATH_SIMD_H
#define KOSC_MATH_SIMD_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "kosc/vector.h"
#include "math/shuffle.h"

#ifndef KOSC_SIMD_BYTES
#define KOSC_SIMD_BYTES 16
#endif

namespace kosc {
#if KOSC_SIMD_BYTES == 16
inline namespace narrow {
#else
inline namespace wide {
#endif

typedef double simd __attribute__((vector_size(KOSC_SIMD_BYTES)));

constexpr uint32_t SIMD_LANES = KOSC_SIMD_BYTES / sizeof(double);

inline simd load_simd(const double* from)
{
    simd v;
    std::memcpy(&v, from, sizeof(v));
    return v;
}

inline void store_simd(double* to, simd v) { std::memcpy(to, &v, sizeof(v)); }

#if KOSC_SIMD_BYTES == 16
inline simd broadcast(double x) { return simd{x, x}; }

inline simd magnitude(simd v)
{
    typedef unsigned long long bits __attribute__((vector_size(16)));
    constexpr unsigned long long SIGN = 1ULL << 63;
    return reinterpret_cast<simd>(reinterpret_cast<bits>(v) & ~bits{SIGN, SIGN});
}

// `v` with the first lane of `from` in its place.
inline simd with_first_lane_of(simd from, simd v) { return shuffle<0, 3>(from, v); }

inline simd swap_lanes(simd v) { return shuffle<1, 0>(v, v); }

// The lower half of the lanes of two registers in turn, and the upper half.
inline simd interleave_low(simd a, simd b) { return shuffle<0, 2>(a, b); }

inline simd interleave_high(simd a, simd b) { return shuffle<1, 3>(a, b); }

// For data in runs of two doubles: a run for every two lanes, the runs `distance` doubles apart; one double of each of
// these runs, in both of its lanes; and within every run its first or its second double in both lanes.
inline simd load_runs(const double* from, size_t) { return load_simd(from); }

inline void store_runs(double* to, size_t, simd v) { store_simd(to, v); }

inline simd broadcast_runs(const double* from, size_t) { return broadcast(*from); }

inline simd first_of_runs(simd v) { return shuffle<0, 0>(v, v); }

inline simd second_of_runs(simd v) { return shuffle<1, 1>(v, v); }
#else
inline simd broadcast(double x) { return simd{x, x, x, x}; }

inline simd with_first_lane_of(simd from, simd v) { return shuffle<0, 5, 6, 7>(from, v); }

inline simd interleave_low(simd a, simd b) { return shuffle<0, 4, 1, 5>(a, b); }

inline simd interleave_high(simd a, simd b) { return shuffle<2, 6, 3, 7>(a, b); }

inline simd load_runs(const double* from, size_t distance)
{
    return simd{from[0], from[1], from[distance], from[distance + 1]};
}

inline void store_runs(double* to, size_t distance, simd v)
{
    std::memcpy(to, &v, sizeof(v) / 2);
    std::memcpy(to + distance, reinterpret_cast<const char*>(&v) + sizeof(v) / 2, sizeof(v) / 2);
}

inline simd broadcast_runs(const double* from, size_t distance)
{
    return simd{from[0], from[0], from[distance], from[distance]};
}

inline simd first_of_runs(simd v) { return shuffle<0, 0, 2, 2>(v, v); }

inline simd second_of_runs(simd v) { return shuffle<1, 1, 3, 3>(v, v); }
#endif

// As many complex numbers, their real parts apart from their imaginary ones.
struct simd_complex {
    simd re;
    simd im;
};

inline simd_complex load_complex(const double* re, const double* im) { return {load_simd(re), load_simd(im)}; }

inline void store_complex(double* re, double* im, simd_complex z)
{
    store_simd(re, z.re);
    store_simd(im, z.im);
}

inline simd_complex broadcast(const kom_complex& z) { return {broadcast(z.re), broadcast(z.im)}; }

inline simd_complex operator+(simd_complex a, simd_complex b) { return {a.re + b.re, a.im + b.im}; }

inline simd_complex operator-(simd_complex a, simd_complex b) { return {a.re - b.re, a.im - b.im}; }

inline simd_complex operator*(simd_complex a, simd_complex b)
{
    return {a.re * b.re - a.im * b.im, a.re * b.im + a.im * b.re};
}

// a * conj(b)
inline simd_complex times_conjugate(simd_complex a, simd_complex b)
{
    return {a.re * b.re + a.im * b.im, a.im * b.re - a.re * b.im};
}

// i * z
inline simd_complex times_i(simd_complex z) { return {-z.im, z.re}; }

} // namespace narrow or wide
} // namespace kosc

#endif
