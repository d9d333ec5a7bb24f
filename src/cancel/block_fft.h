// Transforms of BLOCK_LEN values.
#ifndef KOSC_CANCEL_BLOCK_FFT_H
#define KOSC_CANCEL_BLOCK_FFT_H

#include "cancel/baseband.h"

namespace kosc {

// Factors and scratch memory.
struct block_fft {
    double twiddle[BLOCK_LEN]; // BLOCK_LEN / 2 complex values exp(-2*pi*i*k / BLOCK_LEN)
    double even[BLOCK_LEN];    // as many, scratch
    double odd[BLOCK_LEN];     // likewise
};

void init_block_fft(block_fft* fft);

// In place, BLOCK_LEN interleaved complex values. The inverse divides by BLOCK_LEN.
void transform_block(block_fft* fft, double* data);
void invert_block(block_fft* fft, double* data);

} // namespace kosc

#endif
