// Real OFDM symbols out of a narrow band of subcarriers.
//
// Even and odd samples become the real and imaginary parts of n/2 complex numbers, whose spectrum is the band and its
// mirror. Of every R = n/128 of these numbers, number r is one transform of 64 points over the band turned by r steps
// and folded to 64 bins, so that R transforms run side by side in contiguous loops.
// Sources: pruning, Markel 1971, "FFT pruning"; real signals by half their length, Cooley, Lewis and Welch 1970, "The
// fast Fourier transform algorithm: programming considerations".
#ifndef KOSC_DSP_BAND_INVERSE_H
#define KOSC_DSP_BAND_INVERSE_H

#include <cstdint>

struct band_inverse;

namespace kosc {

// Prepares symbols of `symbol_len` samples with `count` subcarriers from bin `start` on. Null when memory is short, or
// for layouts that this serves no better than a whole transform.
band_inverse* band_inverse_init(uint32_t symbol_len, uint32_t start, uint32_t count);

// Null is ignored.
void band_inverse_free(band_inverse* engine);

// The samples of ofdm_mod_halfcomplex() over ofdm_map_subcarries(), to within rounding. `values` holds the subcarriers
// as interleaved complex values, and `work` band_inverse_work() doubles.
void band_inverse_run(const band_inverse* engine, const double* values, double* work, double* samples);

// Doubles of work area that a run needs.
uint32_t band_inverse_work(const band_inverse* engine);

} // namespace kosc

#endif
