// Soft bits of a frame as a value, between the demodulator that makes them and whoever decodes or combines them.
#ifndef KOSC_SECOND_LOOK_SOFT_BITS_H
#define KOSC_SECOND_LOOK_SOFT_BITS_H

#include "second_look/frame_clock.h"

namespace kosc {

// The joint channel's figures; its coefficients lie in frame_channel::joint.
struct channel_estimate {
    uint32_t symbols; // that were joined
    double signal;    // power on a subcarrier
    double noise;     // likewise
};

// What a frame says of its bits.
//
// With the channel matched, llr = Re(conj(h) * received) of an axis, and of a constant times that, 4*a/noise with the
// axis's amplitude a = 1/sqrt(2), it is the log-likelihood ratio of the bit: values of frames can be added after they
// were divided by their noise. With spread values it is the axis itself, the channel divided out by the
// minimum-mean-square equaliser.
struct soft_bits {
    const double* llr; // `count` values in the order sent, positive for a one; the demodulator's, until its next demap
    uint32_t count;
    channel_estimate channel; // powers of signal and noise behind them
    frame_clock clock;        // where the frame's samples were taken to lie
};

} // namespace kosc

#endif
