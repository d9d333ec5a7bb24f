// The band of the subcarriers at a lower rate: where a frame is made again and its channel is estimated.
#ifndef KOSC_CANCEL_BASEBAND_H
#define KOSC_CANCEL_BASEBAND_H

#include "kosc/context.h"

namespace kosc {

// Complex baseband values that one block holds: a frame and the delays of its channel.
constexpr uint32_t BLOCK_LEN = 2048;

// Baseband values by which the channel may reach before the found start: the search takes the strongest arrival for the
// first, and the low-pass filter spreads it.
constexpr uint32_t LEAD = 24;

// A low-pass filter, mixed down: complex taps, `reach` on either side of the middle one.
struct low_pass {
    static constexpr uint32_t MOST_REACH = 48;
    uint32_t reach;
    double taps[2 * (2 * MOST_REACH + 1)];
};

// How samples and baseband belong together. The baseband is mixed down from the middle of the band and decimated to two
// values a subcarrier and symbol, half of which are the band's.
struct baseband {
    uint32_t decimation;
    uint32_t frame_len;  // values of a frame
    uint32_t symbol_len; // values of a symbol with its prefix
    double middle;       // frequency in radians a sample
    low_pass sharp;      // 80 dB
    low_pass brief;      // 30 dB, in a quarter of the time: for samples behind the receiver's filter
};

// False where the frame does not fit a block, or its symbols are no whole number of values.
bool init_baseband(const soundcomm_paras_t& paras, baseband* b);

// Samples around a frame's start: from_start[n] is there for first <= n < end.
struct frame_surroundings {
    const double* from_start;
    int64_t first;
    int64_t end;
};

// Mixes `count` values down through one of the two filters, the first of them `LEAD` values before the frame's start,
// into `out`; `present` receives 1 for each whose samples are all there, and 0, with a value of zero, for the others.
// `phasors` has room for `count` complex values.
void mix_down(const baseband& b, const low_pass& filter, const frame_surroundings& samples, uint32_t count,
              double* phasors, double* out, double* present);

// The inverse, through the sharp one: `count` values, again from `LEAD` before the start on, as count * decimation
// samples. `values` are used up.
void mix_up(const baseband& b, uint32_t count, double* phasors, double* values, double* out);

} // namespace kosc

#endif
