// Where a frame's samples lie when the sender's clock, or the sender, moves against the receiver.
#ifndef KOSC_SECOND_LOOK_FRAME_CLOCK_H
#define KOSC_SECOND_LOOK_FRAME_CLOCK_H

#include <cmath>

#include "kosc/context.h"

namespace kosc {

// Time as sent against time as received, both in samples from the frame's nominal start, parabolic in between.
struct frame_clock {
    double sent_anchor;     // middle of the synchronisation pilot's FFT window
    double received_anchor; // where the found frame start puts it
    double rate;            // sent samples passing in a received one, less 1, at the anchor
    double bend;            // change of the rate with every received sample

    double sent_time(double received) const
    {
        const double t = received - received_anchor;
        return sent_anchor + t + (rate + bend * t / 2) * t;
    }
    // To the first order in the bend: errs by less than a hundredth of a sample.
    double received_time(double sent) const
    {
        const double t = (sent - sent_anchor) / (1.0 + rate);
        return received_anchor + t - bend * t * t / 2;
    }
    double rate_at(double received) const { return rate + bend * (received - received_anchor); }
};

// Start of the FFT window of symbol `index` in sent samples.
inline double window_start(const soundcomm_cfg_t& cfg, uint32_t index)
{
    const ofdm_cfg& ofdm = cfg.ofdm_cfg;
    return static_cast<double>(index) * (ofdm.symbol_len + ofdm.cp_len) + (ofdm.cp_len - cfg.fade_cfg.len);
}

// The clock of a drift. The synchronisation pilot is a chirp that sweeps one subcarrier every symbol_len / sc_num
// samples: shifted in frequency, it is found that much early.
inline frame_clock make_clock(const soundcomm_paras_t& paras, double rate, double bend)
{
    const ofdm_cfg& ofdm = paras.cfg.ofdm_cfg;
    const double middle = window_start(paras.cfg, paras.frame.sync_pilot_index) + (ofdm.symbol_len - 1) / 2.0;
    const double middle_subcarrier = ofdm.sc_start_idx + (ofdm.sc_num - 1) / 2.0;
    return {middle, middle + middle_subcarrier * rate * ofdm.symbol_len / ofdm.sc_num, rate, bend};
}

} // namespace kosc

#endif
