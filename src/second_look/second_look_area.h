// The memory of a second look, and what of its configuration is worked out once.
#ifndef KOSC_SECOND_LOOK_SECOND_LOOK_AREA_H
#define KOSC_SECOND_LOOK_SECOND_LOOK_AREA_H

#include "kosc/channel_smoother.h"
#include "kosc/drift.h"
#include "kosc/second_look.h"
#include "kosc/soft_viterbi.h"

namespace kosc {

// The frame that was recovered last on a track, so that it is not delivered again from an echo.
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
    kosc::recovered_frame recovered[KOSC_MAX_TRACKS];
    const soundcomm_paras_t* paras;
    channel_smoother_t* smoother; // owned
    drift_search_t* search;       // owned
    soft_viterbi_t* viterbi;      // owned
    uint32_t coded_len;           // code bits before puncturing
    uint32_t* position;           // owned; place of each code bit in the frame, NO_POSITION when it is not sent
    double* numbers;              // owned; all arrays of doubles below, one behind the other
    double* frame;                // frame_length samples without what lies far below the subcarriers
    double* evening;              // sc_num factors that undo the tilt of that
    double* received;             // symbols rows of sc_num complex values
    double* sent;                 // the same of what was sent; data symbols once they are decoded
    double* coefficients;         // symbols rows of rank complex values: each symbol's channel
    double* joint;                // rank complex values: the channel of all symbols together
    double* own;                  // rank complex values
    double* response;             // sc_num complex values
    double* phases;               // symbols values: how each symbol is turned against the joint channel
    double* levels;               // one value for each bit of the frame, in the order sent
    double* soft;                 // coded_len values
    double* work;                 // 3 * sc_num doubles
    uint8_t* octets;              // owned; all arrays of bytes below
    uint8_t* bits;                // decoded bits and tail
    uint8_t* earlier_bits;        // those of the pass before
    uint8_t* bytes;
    uint8_t* crc_scratch;
    uint8_t* crc_matches;
};

namespace kosc {

constexpr uint32_t NO_POSITION = UINT32_MAX;

// Whether speech lies far enough below the subcarriers to be taken out without tilting them much.
inline bool removes_low_sounds(const ofdm_cfg& ofdm) { return ofdm.sc_start_idx >= ofdm.symbol_len / 4; }

// A work area, null when memory is short or the configuration is not one for a second look.
second_look_t* make_second_look(const soundcomm_paras_t& paras);

// Null is ignored.
void free_second_look(second_look_t* look);

} // namespace kosc

#endif
