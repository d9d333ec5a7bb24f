// A decoded frame as its sender must have sent it.
#ifndef KOSC_CANCEL_RESENT_FRAME_H
#define KOSC_CANCEL_RESENT_FRAME_H

#include "cancel/baseband.h"
#include "second_look/frame_clock.h"

namespace kosc {

// Writes the frame whose symbols are `sent`, rows of sc_num complex values, into the baseband, with its prefixes and
// fades, on the time axis of the receiver: value m is what the clock has the sender play m * decimation samples behind
// the found start. b.frame_len complex values; nothing is sent before and behind the frame.
void resend_frame(const soundcomm_paras_t& paras, const baseband& b, const double* sent, const frame_clock& clock,
                  double* out);

} // namespace kosc

#endif
