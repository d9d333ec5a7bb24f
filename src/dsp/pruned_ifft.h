// Real OFDM symbols out of a narrow band of subcarriers.
//
// Even and odd samples become the real and imaginary parts of n/2 complex numbers, whose spectrum is the band and its
// mirror. Of every R = n/128 of these numbers, number r is one transform of 64 points over the band turned by r steps
// and folded to 64 bins, so that R transforms run side by side in contiguous loops.
// Sources: pruning, Markel 1971, "FFT pruning"; real signals by half their length, Cooley, Lewis and Welch 1970, "The
// fast Fourier transform algorithm: programming considerations".
#ifndef KOSC_DSP_PRUNED_IFFT_H
#define KOSC_DSP_PRUNED_IFFT_H

#include <cstdint>

struct pruned_ifft;

namespace kosc {

// Prepares symbols of `symbol_len` samples with `count` subcarriers from bin `start` on. Null when memory is short, or
// for layouts that this serves no better than a whole transform.
pruned_ifft* pruned_ifft_init(uint32_t symbol_len, uint32_t start, uint32_t count);

// Null is ignored.
void pruned_ifft_free(pruned_ifft* engine);

// The samples of ofdm_mod_halfcomplex() over ofdm_map_subcarries(), to within rounding. `values` holds the subcarriers
// as interleaved complex values, and `work` pruned_ifft_work() doubles.
void pruned_ifft_run(const pruned_ifft* engine, const double* values, double* work, double* samples);

// Doubles of work area that a run needs.
uint32_t pruned_ifft_work(const pruned_ifft* engine);

} // namespace kosc

#endif
