// Symbols of a frame that bursts or other frames hit, and how much less they count.
#ifndef KOSC_SECOND_LOOK_SYMBOL_WEIGHTS_H
#define KOSC_SECOND_LOOK_SYMBOL_WEIGHTS_H

#include "second_look/frame_channel.h"

namespace kosc {

// The joint channel as the frame's channel has it, from the measured symbols, each with a weight that its own noise
// gives it. Fills the weights; the estimate counts symbols by weight.
channel_estimate join_weighted(bool pilots_only, frame_channel* channel);

// Weight of symbol `i` in the soft decisions: by what the response, in the channel's scratch row, leaves of its power.
// With `leave_out` that response is made from the other symbols, and what the symbol left unexplained of itself counts
// as much.
double decision_weight(const frame_channel& channel, uint32_t i, double noise, bool leave_out);

} // namespace kosc

#endif
