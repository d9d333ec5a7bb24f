// A frame's channel with the powers of its echoes learnt from the frame itself.
#ifndef KOSC_COMBINE_LEARNT_CHANNEL_H
#define KOSC_COMBINE_LEARNT_CHANNEL_H

#include "combine/weak_layout.h"
#include "second_look/frame_channel.h"

namespace kosc {

constexpr uint32_t MAX_RANK = 20;        // sequences of the smoother for the one frame layout
constexpr uint32_t ECHO_DELAYS = 36;     // that an echo may have
constexpr uint32_t ECHO_DELAY_STEP = 8;  // samples
constexpr uint32_t FIRST_ECHO_DELAY = 2; // steps before the found start

// The channel is taken for a sum of echoes, each of independent Gaussian amplitude and of a power of its own. What the
// powers are is what explains the measurement best. The second look takes all delays for equally strong instead.
// Source: Tipping 2001, "Sparse Bayesian learning and the relevance vector machine".
//
// The smoother's sequences are real up to a phase that turns with the subcarrier, and by turns symmetric and
// antisymmetric about the band's middle. An echo's response turns with the subcarrier, too, so that its coefficients
// are real along symmetric sequences and imaginary along antisymmetric ones, but for a phase that they share and a
// covariance does not see. With those axes taken out all matrices here are real.
struct learnt_channel {
    uint32_t rank;
    double echo[ECHO_DELAYS][MAX_RANK]; // coefficients of an echo of unit power, along the smoother's sequences
    double power[ECHO_DELAYS];
    double shrink[MAX_RANK][MAX_RANK];     // from measured coefficients to their conditional mean
    double error;                          // power of what is then left of the error, on a subcarrier
    double covariance[MAX_RANK][MAX_RANK]; // scratch
};

// False when the smoother has too many sequences.
bool init_learnt_channel(const channel_smoother_t& smoother, learnt_channel* learnt);

// Learns the echoes' powers from the joint coefficients of an estimate.
void learn_channel(const channel_estimate& estimate, const double* joint, learnt_channel* learnt);

// Log-likelihood ratios ln(P(1)/P(0)) of the frame's bits in the order sent, under the estimate and the powers learnt,
// limited to +-MAX_LLR: 4*a*Re(received * conj(h)) / (noise + error) with the amplitude a of an axis. With `leave_out`
// as demap_frame() has it.
constexpr float MAX_LLR = 12.0F;
void soften(const channel_estimate& estimate, bool leave_out, frame_channel* channel, learnt_channel* learnt,
            float* llr);

} // namespace kosc

#endif
