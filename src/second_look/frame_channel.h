// The symbols of a frame and the channel that they went through, followed along the frame.
#ifndef KOSC_SECOND_LOOK_FRAME_CHANNEL_H
#define KOSC_SECOND_LOOK_FRAME_CHANNEL_H

#include "config/frame_symbols.h"
#include "kosc/channel_smoother.h"
#include "math/complex_ops.h"
#include "second_look/soft_bits.h"

namespace kosc {

// A frame's spectra, and each symbol's channel along the smoother's sequences. The model is
//     received(i, k) = exp(j*phase(i)) * h(k) * sent(i, k) + noise(i, k)
// with one response h for the whole frame, whose echoes lie within the cyclic prefix, a slowly changing phase, and
// white noise.
struct frame_channel {
    const soundcomm_paras_t* paras;
    const channel_smoother_t* smoother;
    double* samples;      // frame_length samples, high-passed where the subcarriers lie high
    double* tilt_gain;    // sc_num factors: what that filter took from each subcarrier
    double* received;     // symbols rows of sc_num complex values
    double* coefficients; // symbols rows of rank complex values: each symbol's channel, with its noise
    double* joint;        // rank complex values: the sum over the joined symbols, each rotated back by its phase
    double* phases;       // symbols values, in radians
    double* weights;      // symbols values; see symbol_weights.h
    bool weighted;        // whether the symbols count by them, or all alike
    double* response;     // scratch: sc_num complex values
    double* work;         // scratch: 3 * sc_num doubles
};

inline double power(kom_complex z) { return z.re * z.re + z.im * z.im; }

inline kom_complex conj(kom_complex z) { return {z.re, -z.im}; }

inline bool is_pilot(const soundcomm_paras_t& paras, uint32_t i) { return frame_symbol_at(paras, i).is_pilot; }

// Row `i` of `symbols` rows of sc_num complex values.
template <typename T> T* symbol_row(const soundcomm_paras_t& paras, T* rows, uint32_t i)
{
    return rows + size_t{2} * paras.cfg.ofdm_cfg.sc_num * i;
}

inline double* coefficient_row(const frame_channel& channel, uint32_t i)
{
    return channel.coefficients + size_t{2} * channel.smoother->rank * i;
}

// Fills tilt_gain; paras and the array must be there.
void init_tilt_gain(frame_channel* channel);

// Fills `samples` from a frame, without speech and hum, which lie far below the subcarriers but may be a hundred times
// as loud: off the FFT's grid they would leak into the band. Where the subcarriers lie low it copies all. The frame may
// lie in `samples` already.
void take_frame(const double* frame, frame_channel* channel);

// Fills `received`: the subcarrier values of every symbol, each demodulated at the place and at the frequencies that
// the clock gives it.
void transform_symbols(const frame_clock& clock, frame_channel* channel);

// Fills coefficients, joint and phases (with zeros) from the pilots alone. `sent` has symbols rows of sc_num complex
// values, of which the pilots' are read.
channel_estimate estimate_by_pilots(const double* sent, frame_channel* channel);

// The same from all symbols, with their phases against the joint channel, smoothed along the frame.
channel_estimate estimate_by_all(const double* sent, frame_channel* channel);

// Root of unexplained over explained power of the data symbols, under the joint channel.
double error_vector_magnitude(const double* sent, const channel_estimate& estimate, frame_channel* channel);

} // namespace kosc

#endif
