// Where a frame's samples lie when the sender's clock, or the sender, moves against the receiver.
#ifndef KOSC_SECOND_LOOK_FRAME_CLOCK_H
#define KOSC_SECOND_LOOK_FRAME_CLOCK_H

#include <cmath>

#include "kosc/context.h"

namespace kosc {

// Time as sent against time as received, both in samples from the frame's nominal start.
//
// With t = received - received_anchor,
//     sent = sent_anchor + t + rate*t + rate_change*t^2/2,
// which assumes that within a frame the sender's clock runs evenly and its distance changes with constant acceleration:
// motion towards the receiver at v scales time by 1 + v/c, 1000 ppm for 34 cm/s. Received frequencies are 1 +
// rate_at(t) times the sent ones.
struct frame_clock {
    double sent_anchor;     // middle of the synchronisation pilot's FFT window
    double received_anchor; // where the found frame start puts it
    double rate;            // sent samples passing in a received one, less 1, at the anchor
    double rate_change;     // change of the rate with every received sample

    double sent_time(double received) const
    {
        const double t = received - received_anchor;
        return sent_anchor + t + (rate + rate_change * t / 2) * t;
    }
    // To the first order in the rate's change: errs by less than a hundredth of a sample.
    double received_time(double sent) const
    {
        const double t = (sent - sent_anchor) / (1.0 + rate);
        return received_anchor + t - rate_change * t * t / 2;
    }
    double rate_at(double received) const { return rate + rate_change * (received - received_anchor); }
};

// Start of the FFT window of symbol `index` in sent samples.
inline double window_start(const soundcomm_cfg_t& cfg, uint32_t index)
{
    const ofdm_cfg& ofdm = cfg.ofdm_cfg;
    return static_cast<double>(index) * (ofdm.symbol_len + ofdm.cp_len) + (ofdm.cp_len - cfg.fade_cfg.len);
}

// The clock of a drift. The synchronisation pilot, a Zadoff-Chu sequence over the subcarriers, is a chirp that sweeps
// one subcarrier every symbol_len / sc_num samples. Shifted by `rate` times its middle frequency, which is
// middle_subcarrier*rate subcarriers, it correlates best that many such times early: its ambiguity ridge (Woodward
// 1953, "Probability and information theory, with applications to radar").
inline frame_clock make_clock(const soundcomm_paras_t& paras, double rate, double rate_change)
{
    const ofdm_cfg& ofdm = paras.cfg.ofdm_cfg;
    const double middle = window_start(paras.cfg, paras.frame.sync_pilot_index) + (ofdm.symbol_len - 1) / 2.0;
    const double middle_subcarrier = ofdm.sc_start_idx + (ofdm.sc_num - 1) / 2.0;
    return {middle, middle + middle_subcarrier * rate * ofdm.symbol_len / ofdm.sc_num, rate, rate_change};
}

} // namespace kosc

#endif
