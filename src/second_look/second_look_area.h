// The memory of a second look, and what of its configuration is worked out once.
#ifndef KOSC_SECOND_LOOK_SECOND_LOOK_AREA_H
#define KOSC_SECOND_LOOK_SECOND_LOOK_AREA_H

#include "kosc/drift.h"
#include "kosc/second_look.h"
#include "second_look/frame_channel.h"
#include "second_look/soft_decoder.h"

namespace kosc {

// The frame that was recovered last on a track, so that an echo of it is not delivered again.
struct recovered_frame {
    bool any;
    uint64_t sample; // its start, counted as in frame_report_t
    frame_quality_t quality;
    uint8_t* msg; // msg_byte_len bytes
};

} // namespace kosc

struct second_look_t {
    uint32_t mode; // KOSC_SECOND_LOOK_...
    frame_quality_t quality;
    kosc::recovered_frame recovered[KOSC_MAX_TRACKS]; // the receiver's
    const soundcomm_paras_t* paras;
    channel_smoother_t* smoother;    // owned
    drift_search_t* search;          // owned
    kosc::soft_decoder decoder;      // owns its arrays
    kosc::frame_channel channel;     // its arrays lie in `doubles`
    double* doubles;                 // owned; all arrays of doubles, one behind the other
    kosc::channel_estimate estimate; // the last; no symbols before the first
    double* llr;                     // two values a data cell, in the order sent
    double* sent;                    // symbols rows of sc_num complex values; the data symbols' once they are decoded
    uint8_t* bytes;                  // owned; all arrays of bytes, one behind the other
    uint8_t* earlier_bits;           // those of the pass before
};

namespace kosc {

// A work area, null when memory is short or the configuration is not one for a second look.
second_look_t* make_second_look(const soundcomm_paras_t& paras);

// Null is ignored.
void free_second_look(second_look_t* look);

} // namespace kosc

#endif
