// The library's FFT over C++'s complex numbers.
#ifndef KOSC_LINK_TRANSFORM_H
#define KOSC_LINK_TRANSFORM_H

#include <complex>
#include <vector>

#include "kosc/fft.h"

namespace kosc_link {

using complex_signal = std::vector<std::complex<double>>;

// The same numbers as the library takes them: pairs of doubles, by the language's own rule.
inline double* doubles(complex_signal& data) { return reinterpret_cast<double*>(data.data()); }

// In place, of a power of two of numbers: forward without scale, backward with 1/n.
inline void transform(complex_signal* data, bool forward)
{
    const auto size = static_cast<uint32_t>(data->size());
    forward ? kom_fft_complex_radix2_forward(doubles(*data), 1, size)
            : kom_fft_complex_radix2_inverse(doubles(*data), 1, size);
}

// The least power of two that is not below `size`.
inline size_t power_of_two_from(size_t size)
{
    size_t power = 1;
    while (power < size) {
        power *= 2;
    }
    return power;
}

} // namespace kosc_link

#endif
