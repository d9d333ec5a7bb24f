// Complex arithmetic on interleaved doubles, with the order of operations written out: it is part of every result.
#ifndef KOSC_MATH_COMPLEX_OPS_H
#define KOSC_MATH_COMPLEX_OPS_H

#include <cstddef>

#include "kosc/vector.h"

namespace kosc {

inline kom_complex load(const double* data, size_t k) { return {data[2 * k], data[2 * k + 1]}; }

inline void store(double* data, size_t k, kom_complex z)
{
    data[2 * k] = z.re;
    data[2 * k + 1] = z.im;
}

inline kom_complex operator+(kom_complex a, kom_complex b) { return {a.re + b.re, a.im + b.im}; }

inline kom_complex operator-(kom_complex a, kom_complex b) { return {a.re - b.re, a.im - b.im}; }

inline kom_complex operator*(kom_complex a, kom_complex b)
{
    return {a.re * b.re - a.im * b.im, a.re * b.im + a.im * b.re};
}

// a / b by way of the unit vector along b, so that neither large nor small divisors overflow on the way.
kom_complex divide(kom_complex a, kom_complex b);

} // namespace kosc

#endif
