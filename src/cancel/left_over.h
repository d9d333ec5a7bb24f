// Whether a decoded frame and the noise floor explain all that was received under it.
#ifndef KOSC_CANCEL_LEFT_OVER_H
#define KOSC_CANCEL_LEFT_OVER_H

#include "cancel/baseband.h"
#include "second_look/frame_clock.h"

namespace kosc {

// What symbols hold beside the frame, through the one response that all of them share, and noise.
enum class left_over {
    NOTHING,
    AS_OF_A_ROOM, // much the same and little in all of them, as echoes beyond the prefix leave it: or another frame
    MORE
};

// `floor` is the noise's mean power a sample behind the receiver's filter. `clock` is corrected meanwhile, by as much
// as takes some hundred ppm from it. `samples` hold the whole frame, `sent` rows of sc_num complex values; `scratch`
// has room for as many, and two rows more.
left_over find_left_over(const soundcomm_paras_t& paras, const double* samples, const double* sent, double floor,
                         double* scratch, frame_clock* clock);

} // namespace kosc

#endif
