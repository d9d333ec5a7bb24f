// Whether a decoded frame and the noise floor explain all that was received under it.
#ifndef KOSC_CANCEL_LEFT_OVER_H
#define KOSC_CANCEL_LEFT_OVER_H

#include "cancel/baseband.h"
#include "second_look/frame_clock.h"

namespace kosc {

// True when some symbol holds more than the frame, through the one response that all its symbols share, and a noise of
// `floor`, mean power a sample behind the receiver's filter. Another frame is such a thing; so are echoes beyond the
// prefix and a drift that the clock does not tell, so that true means no more than that a closer look is worth its
// price. `samples` hold the whole frame, `sent` rows of sc_num complex values; `scratch` has room for as many, and
// sc_num more.
bool is_more_than_frame(const soundcomm_paras_t& paras, const double* samples, const double* sent,
                        const frame_clock& clock, double floor, double* scratch);

} // namespace kosc

#endif
