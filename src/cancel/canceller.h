// What was received of a decoded frame, so that it can be taken out of the samples and frames that it covers be
// decoded.
//
// The frame is made again from its bits, on the clock that it was received with, in the baseband; the impulse response
// through which it came is estimated by regularised least squares, and both together are what was received of it.
// Source of the principle, successive interference cancellation: Verdu 1998, "Multiuser detection", chapter 7.
#ifndef KOSC_CANCEL_CANCELLER_H
#define KOSC_CANCEL_CANCELLER_H

#include "cancel/baseband.h"
#include "cancel/left_over.h"
#include "second_look/frame_clock.h"

namespace kosc {

struct canceller;

// About 500 KB for the built-in configuration. Null when memory is short or the configuration is not one that
// suits_canceller().
canceller* make_canceller(const soundcomm_paras_t& paras);

// Whether frames can be made again and fit a block.
bool suits_canceller(const soundcomm_paras_t& paras);

// Null is ignored.
void free_canceller(canceller* c);

// How far the impulse response is looked for: within the prefix, or with so much of a room's tail as can be told from
// other frames that lie over it; ROOM is all of the tail, of a frame that is alone.
enum class reach { PREFIX, TAIL, ROOM };

// Which samples around a found start an estimate covers: `count` from `first` on.
struct cancel_span {
    int64_t first;
    uint32_t count;
};

cancel_span span_of(const canceller& c, reach far);

// A frame to be estimated.
struct cancel_job {
    const double* sent; // its symbols, rows of sc_num complex values
    frame_surroundings samples;
    frame_surroundings filtered; // the same behind the receiver's filter
    frame_clock clock;           // as it was decoded
    bool clock_known;            // it is exact: estimated in an earlier job
    double floor;                // mean power of a sample behind the receiver's filter, of noise alone
    reach far;
};

// What lies under the frame beside it; with more than nothing, `clock` receives a better one.
left_over find_company(canceller* c, const cancel_job& job, frame_clock* clock);

// Whether a room's response, up to the end of its tail, explains all that was received; takes a tenth of the time of
// estimate_received().
bool is_alone(canceller* c, const cancel_job& job);

// What was received of the frame: span_of() samples, the canceller's until the next call; null when there is nothing of
// the frame. `clock` receives the exact clock then.
const double* estimate_received(canceller* c, const cancel_job& job, frame_clock* clock);

} // namespace kosc

#endif
