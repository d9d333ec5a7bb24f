// A drift search among few drifts, at a frame whose drift is roughly known, by one microphone or by two.
#ifndef KOSC_SECOND_LOOK_DRIFT_NEAR_H
#define KOSC_SECOND_LOOK_DRIFT_NEAR_H

#include "kosc/drift.h"
#include "math/complex_ops.h"

namespace kosc {

// A frame as one microphone received it, and the work area to search it with.
struct microphone_frame {
    drift_search_t* search;
    const double* samples;
    kom_complex prefixes; // sum over the symbols of end times conjugate prefix, at the middle of the band, over their
                          // mean power: turned by what a symbol's length turns the middle under the drift; 0: not known
    double coherence;     // filled: its own under the drift found
};

// The most coherent drift whose rate in the middle of the frame lies within `reach` of `rate`, where it is expected:
// distance from there costs coherence, as a change of rate does. With two microphones their coherences are averaged:
// sender and clock are the same for both.
//
// The pilots are chirps, in which a shift of frequency passes for one of time, so that they hardly tell drifts that
// turn one pilot against the next by a whole circle: 642 ppm apart in the near-ultrasonic band. The prefixes tell,
// whose turn is four times less. Source: van de Beek, Sandell and Borjesson 1997, "ML estimation of time and frequency
// offset in OFDM systems".
drift_t find_drift_near(double rate, double reach, microphone_frame* frames, uint32_t frame_num);

} // namespace kosc

#endif
