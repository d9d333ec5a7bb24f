// Two doubles in one machine register, through the compilers' vector extension: SSE2, NEON and WebAssembly alike. Lanes
// never mix, so a pair gives the bits that two doubles would.
//
// A file that is also compiled for registers of twice the width has KOSC_PAIR_BYTES 32 there: its pairs are two side by
// side. Their functions lie in another namespace, so that no linker puts those for wide registers into other files.
#ifndef KOSC_MATH_PAIR_H
#define KOSC_MATH_PAIR_H

#include <cstring>

#include "kosc/vector.h"
#include "math/shuffle.h"

#ifndef KOSC_PAIR_BYTES
#define KOSC_PAIR_BYTES 16
#endif

namespace kosc {
#if KOSC_PAIR_BYTES == 16
inline namespace narrow {
#else
inline namespace wide {
#endif

typedef double pair __attribute__((vector_size(KOSC_PAIR_BYTES)));

constexpr uint32_t PAIR = KOSC_PAIR_BYTES / sizeof(double); // doubles in a pair

inline pair load_pair(const double* from)
{
    pair p;
    std::memcpy(&p, from, sizeof(p));
    return p;
}

inline void store_pair(double* to, pair p) { std::memcpy(to, &p, sizeof(p)); }

#if KOSC_PAIR_BYTES == 16
inline pair both(double x) { return pair{x, x}; }

inline pair magnitude(pair p)
{
    typedef unsigned long long bits __attribute__((vector_size(16)));
    constexpr unsigned long long SIGN = 1ULL << 63;
    return reinterpret_cast<pair>(reinterpret_cast<bits>(p) & ~bits{SIGN, SIGN});
}

// `p` with the first double of `from` in its place.
inline pair with_first_of(pair from, pair p) { return shuffle<0, 3>(from, p); }

inline pair swapped(pair p) { return shuffle<1, 0>(p, p); }

// The first doubles of two pairs, and the second ones.
inline pair firsts(pair a, pair b) { return shuffle<0, 2>(a, b); }

inline pair seconds(pair a, pair b) { return shuffle<1, 3>(a, b); }
#else
inline pair both(double x) { return pair{x, x, x, x}; }

inline pair with_first_of(pair from, pair p) { return shuffle<0, 5, 6, 7>(from, p); }

// The doubles of the first halves in turn, and of the second ones.
inline pair firsts(pair a, pair b) { return shuffle<0, 4, 1, 5>(a, b); }

inline pair seconds(pair a, pair b) { return shuffle<2, 6, 3, 7>(a, b); }
#endif

// Two complex numbers.
struct complex_pair {
    pair re;
    pair im;
};

inline complex_pair load_complex(const double* re, const double* im) { return {load_pair(re), load_pair(im)}; }

inline void store_complex(double* re, double* im, complex_pair z)
{
    store_pair(re, z.re);
    store_pair(im, z.im);
}

inline complex_pair both(const kom_complex& z) { return {both(z.re), both(z.im)}; }

inline complex_pair operator+(complex_pair a, complex_pair b) { return {a.re + b.re, a.im + b.im}; }

inline complex_pair operator-(complex_pair a, complex_pair b) { return {a.re - b.re, a.im - b.im}; }

inline complex_pair operator*(complex_pair a, complex_pair b)
{
    return {a.re * b.re - a.im * b.im, a.re * b.im + a.im * b.re};
}

// a * conj(b)
inline complex_pair times_conjugate(complex_pair a, complex_pair b)
{
    return {a.re * b.re + a.im * b.im, a.im * b.re - a.re * b.im};
}

// i * z
inline complex_pair times_i(complex_pair z) { return {-z.im, z.re}; }

} // namespace narrow or wide
} // namespace kosc

#endif
