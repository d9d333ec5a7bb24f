// Transforms of BLOCK_LEN values, and filters by them.
#ifndef KOSC_CANCEL_BLOCK_FFT_H
#define KOSC_CANCEL_BLOCK_FFT_H

#include "cancel/baseband.h"

namespace kosc {

// Factors and scratch memory.
struct block_fft {
    double twiddle[BLOCK_LEN];     // BLOCK_LEN / 2 complex values exp(-2*pi*i*k / BLOCK_LEN)
    double scratch[2 * BLOCK_LEN]; // a block
};

void init_block_fft(block_fft* fft);

// The forward transform of `data`, BLOCK_LEN interleaved complex values, into `out`. Uses `data` up.
void transform_block(const block_fft& fft, double* data, double* out);

// Convolves `data`, in place and cyclically, with what has the spectrum; with `reversed`, correlates it instead.
void filter_block(const double* spectrum, bool reversed, block_fft* fft, double* data);

} // namespace kosc

#endif
