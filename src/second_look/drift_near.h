// A drift search among few drifts, at a frame whose drift is roughly known, by one microphone or by two.
#ifndef KOSC_SECOND_LOOK_DRIFT_NEAR_H
#define KOSC_SECOND_LOOK_DRIFT_NEAR_H

#include "kosc/drift.h"

namespace kosc {

// A frame as one microphone heard it, and the work area to search it with.
struct heard_frame {
    drift_search_t* search;
    const double* samples;
    double coherence; // filled: its own under the drift found
};

// The most coherent drift whose rate in the middle of the frame lies within `reach` of `rate`, where it is expected:
// distance from there costs coherence, as a change of rate does. With two microphones their coherences are averaged:
// sender and clock are the same for both.
drift_t find_drift_near(double rate, double reach, heard_frame* frames, uint32_t frame_num);

} // namespace kosc

#endif
