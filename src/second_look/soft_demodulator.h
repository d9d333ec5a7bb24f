// From the samples of a frame to soft bits, under one drift and one channel estimate.
#ifndef KOSC_SECOND_LOOK_SOFT_DEMODULATOR_H
#define KOSC_SECOND_LOOK_SOFT_DEMODULATOR_H

#include "second_look/frame_channel.h"

namespace kosc {

// Soft bits of the frame in `channel` under the estimate, into `llr`, which has room for two values a data cell. With
// `leave_out`, each symbol's own measurement is taken out of the estimate it is demapped with: it was made with the
// bits decided before, and its noise would confirm them.
void demap_frame(const channel_estimate& estimate, bool leave_out, frame_channel* channel, double* llr);

// The data symbols with the channel divided out: points near (+-1 +-j)/sqrt(2), re_num complex values in the order
// sent.
void equalise_frame(const channel_estimate& estimate, frame_channel* channel, double* symbols);

} // namespace kosc

#endif
