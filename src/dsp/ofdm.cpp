#include "kosc/ofdm.h"

#include "kosc/fft.h"
#include "math/vector_family.h"

using namespace kosc;

kom_vector_complex* ofdm_map_subcarries(const kom_vector_complex* values, uint32_t fft_size, uint32_t start)
{
    const uint32_t n = kom_vector_complex_size(values);
    if (values == nullptr || fft_size % 2 != 0 || uint64_t{start} + n >= fft_size / 2) {
        return nullptr;
    }
    complex_ptr spectrum{kom_vector_complex_alloc(fft_size)};
    kom_vector_complex_set_zero(spectrum.get());
    if (!spectrum || n == 0) {
        return spectrum.release();
    }
    kom_vector_complex_set_by_vector(spectrum.get(), start, 1, values, 0, 1, n);

    const complex_ptr mirror{kom_vector_complex_alloc_from_vector(values, 0, n, 1)};
    if (!mirror) {
        return nullptr;
    }
    kom_vector_complex_reverse(mirror.get());
    kom_vector_complex_conj(mirror.get());
    // With start 0 the mirror would end one past the spectrum, and the copy refuses it.
    kom_vector_complex_set_by_vector(spectrum.get(), fft_size - (start + n - 1), 1, mirror.get(), 0, 1, n);
    return spectrum.release();
}

kom_vector* ofdm_mod_halfcomplex(const kom_vector_complex* spectrum)
{
    const complex_ptr signal{kom_vector_complex_alloc_from_vector(spectrum, 0, kom_vector_complex_size(spectrum), 1)};
    if (!signal || !kom_fft_complex_radix2_inverse(signal->data, signal->stride, signal->size)) {
        return nullptr;
    }
    return kom_vector_complex_real(signal.get());
}

kom_vector_complex* ofdm_demod_real(const kom_vector* signal)
{
    complex_ptr spectrum{kom_vector_complex_real_to_complex(signal)};
    if (!spectrum || !kom_fft_complex_radix2_forward(spectrum->data, spectrum->stride, spectrum->size)) {
        return nullptr;
    }
    return spectrum.release();
}

kom_vector_complex ofdm_demap_subcarries(const kom_vector_complex* spectrum, uint32_t start, uint32_t count)
{
    return kom_vector_complex_const_subvector(spectrum, start, 1, count);
}
