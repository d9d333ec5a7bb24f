// Soft bits of a frame as a value, between the demodulator that makes them and whoever decodes or combines them.
#ifndef KOSC_SECOND_LOOK_SOFT_BITS_H
#define KOSC_SECOND_LOOK_SOFT_BITS_H

#include "second_look/frame_clock.h"

namespace kosc {

// The joint channel's figures; its coefficients lie in frame_channel::joint.
struct channel_estimate {
    double symbols; // that were joined, by weight where they have weights
    double signal;  // power on a subcarrier
    double noise;   // likewise
};

// Soft decisions on the bits of a frame.
//
// After matched filtering llr = Re(conj(h) * received), or Im() for the second bit. Times 4*a/noise, with the amplitude
// a = 1/sqrt(2) of an axis and white Gaussian noise, that is the log-likelihood ratio ln(P(1)/P(0)) of the bit, so that
// those of several frames add up once each is divided by its noise. DFT-spread values are divided by the channel
// instead, by the minimum-mean-square-error equaliser, and llr is the axis itself.
// Source: Hagenauer, Offer and Papke 1996, "Iterative decoding of binary block and convolutional codes".
struct soft_bits {
    const double* llr; // `count` values in the order sent, positive for a one; the demodulator's, until its next demap
    uint32_t count;
    channel_estimate channel; // powers of signal and noise behind them
    frame_clock clock;        // where the frame's samples were taken to lie
};

} // namespace kosc

#endif
