#include "dsp/goertzel.h"

#include <cmath>

#include "math/complex_ops.h"

namespace kosc {

void fill_phasors(double first, double step, uint32_t count, double* out)
{
    kom_complex phasor = {std::cos(first), std::sin(first)};
    const kom_complex turn = {std::cos(step), std::sin(step)};
    for (uint32_t k = 0; k < count; ++k) {
        store(out, k, phasor);
        phasor = phasor * turn;
    }
}

void rotate(double first, double step, uint32_t count, double* data)
{
    kom_complex phasor = {std::cos(first), std::sin(first)};
    const kom_complex turn = {std::cos(step), std::sin(step)};
    for (uint32_t k = 0; k < count; ++k) {
        store(data, k, load(data, k) * phasor);
        phasor = phasor * turn;
    }
}

// Goertzel's recursion s(n) = x(n) + 2*cos(w)*s(n - 1) - s(n - 2), for all frequencies side by side; the value is
// s(N - 1) - exp(-i*w)*s(N - 2), whose phase counts from the last sample and is then moved to the middle.
void goertzel(const double* x, uint32_t length, double first, double step, uint32_t count, double* work, double* out)
{
    double* const newest = work;
    double* const older = work + count;
    double* const twice_cos = work + size_t{2} * count;
    fill_phasors(first, step, count, out);
    for (uint32_t k = 0; k < count; ++k) {
        newest[k] = 0.0;
        older[k] = 0.0;
        twice_cos[k] = 2.0 * out[2 * size_t{k}];
    }
    uint32_t n = 0;
    for (; n + 1 < length; n += 2) { // two samples a turn, so that the recursion's history need not be moved
        for (uint32_t k = 0; k < count; ++k) {
            older[k] = x[n] + twice_cos[k] * newest[k] - older[k];
            newest[k] = x[n + 1] + twice_cos[k] * older[k] - newest[k];
        }
    }
    for (; n < length; ++n) {
        for (uint32_t k = 0; k < count; ++k) {
            const double next = x[n] + twice_cos[k] * newest[k] - older[k];
            older[k] = newest[k];
            newest[k] = next;
        }
    }
    for (uint32_t k = 0; k < count; ++k) {
        const kom_complex phasor = load(out, k);
        store(out, k, {newest[k] - phasor.re * older[k], phasor.im * older[k]});
    }
    const double to_middle = -(static_cast<double>(length) - 1.0) / 2.0;
    rotate(to_middle * first, to_middle * step, count, out);
}

} // namespace kosc
