// What a receiver remembers of a crowd.
#ifndef KOSC_RECEIVE_CROWD_AREA_H
#define KOSC_RECEIVE_CROWD_AREA_H

#include "cancel/canceller.h"
#include "kosc/crowd.h"

namespace kosc {

constexpr uint32_t HEARD_FRAMES = 32; // remembered; several times what fits the buffer
constexpr uint32_t TRIED_PEAKS = 64;  // likewise

// A frame that was delivered. Places are counted in samples since soundcomm_init_receive().
struct heard_frame {
    uint64_t start;
    frame_clock clock;
    frame_clock about;  // while it waits
    bool clock_known;   // by a cancellation
    uint32_t cancelled; // times
    bool due;           // to be cancelled within its prefix
    bool tail_due;      // then with its room's tail
    bool in_silence;    // it began so: all that follows may be its own room's
    bool waits;         // for the end of its tail, which will tell
    uint8_t* msg;       // msg_byte_len bytes
};

// A peak that was tried, and how often the samples under its frame had changed then.
struct tried_peak {
    uint64_t place;
    uint32_t changes;
};

// Least power behind the filter, over this stretch of time and the one before.
// Source: Martin 2001, "Noise power spectral density estimation based on optimal smoothing and minimum statistics".
struct noise_floor {
    double least;
    double least_before;
    uint32_t seen;     // samples of this stretch
    uint64_t followed; // place up to which samples were seen
};

struct crowd_track {
    uint64_t scanned; // every peak before this place was looked at
    noise_floor floor;
    uint32_t heard_num; // since the start; the ring holds the newest
    heard_frame heard[HEARD_FRAMES];
    uint32_t tried_num;
    tried_peak tried[TRIED_PEAKS];
};

} // namespace kosc

struct crowd_t {
    uint32_t mode; // KOSC_CROWD_...
    crowd_counts_t counts;
    kosc::canceller* canceller; // owned
    uint8_t* messages;          // owned; those of all delivered frames
    kosc::crowd_track track[KOSC_MAX_TRACKS];
};

namespace kosc {

// Null is ignored.
void free_crowd(crowd_t* crowd);

// Forgets what was received: samples are counted anew, or were lost.
void reset_crowd(soundcomm_paras_t* paras);

// Gives every prepared track's buffer the history that a crowd needs; without it, with a warning, the crowd is switched
// off. True also where none was asked for.
bool prepare_crowd(soundcomm_paras_t* paras);

} // namespace kosc

#endif
