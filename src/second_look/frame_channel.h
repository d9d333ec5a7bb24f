// The symbols of a frame and the channel that they went through, as a second look sees them.
#ifndef KOSC_SECOND_LOOK_FRAME_CHANNEL_H
#define KOSC_SECOND_LOOK_FRAME_CHANNEL_H

#include "math/complex_ops.h"
#include "second_look/frame_clock.h"
#include "second_look/second_look_area.h"

namespace kosc {

// The joint channel's figures; its response lies in the work area.
struct channel_estimate {
    uint32_t symbols; // that were joined
    double signal;    // power on a subcarrier
    double noise;
    double noise_ratio() const { return noise / (signal * symbols); }
};

inline double power(kom_complex z) { return z.re * z.re + z.im * z.im; }

inline kom_complex conj(kom_complex z) { return {z.re, -z.im}; }

inline bool is_pilot(const second_look_t& look, uint32_t i)
{
    return is_pilot_index(look.paras->cfg.pilot_cfg.data_pilot_rate, i);
}

inline double* received(const second_look_t& look, uint32_t i)
{
    return look.received + size_t{2} * look.paras->cfg.ofdm_cfg.sc_num * i;
}

inline double* sent(const second_look_t& look, uint32_t i)
{
    return look.sent + size_t{2} * look.paras->cfg.ofdm_cfg.sc_num * i;
}

inline double* coefficients(const second_look_t& look, uint32_t i)
{
    return look.coefficients + size_t{2} * look.smoother->rank * i;
}

// Copies the frame without speech and hum, which lie far below the subcarriers but may be a hundred times as loud: off
// the FFT's grid, too much of them would leak into the band. Where the subcarriers lie low it copies all.
void remove_low_sounds(const second_look_t& look, const double* input);

// Subcarrier values of every symbol, each with its window and frequencies where the clock has them.
void demodulate(const second_look_t& look, const frame_clock& clock);

// Estimates the joint channel from the pilots alone.
channel_estimate estimate_by_pilots(const second_look_t& look);

// Estimates it from all symbols, whose `sent` values must be known, and how each symbol is turned against it.
channel_estimate estimate_by_all(const second_look_t& look);

// Root of unexplained over explained power of the data symbols, under the joint channel.
double error_vector_magnitude(const second_look_t& look, const channel_estimate& estimate);

} // namespace kosc

#endif
