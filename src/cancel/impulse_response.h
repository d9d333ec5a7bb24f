// The impulse response between a sender and a microphone, estimated from a whole frame that is known.
#ifndef KOSC_CANCEL_IMPULSE_RESPONSE_H
#define KOSC_CANCEL_IMPULSE_RESPONSE_H

#include "cancel/block_fft.h"

namespace kosc {

constexpr uint32_t MAX_DELAYS = BLOCK_LEN / 2;

// A linear model of what was received: received = resent * response + noise, with `delays` complex taps and, for each
// received value, a weight. Its arrays hold BLOCK_LEN or MAX_DELAYS values, complex where they are twice as long.
struct response_model {
    block_fft fft;
    double spectrum[2 * BLOCK_LEN]; // of the frame as it was sent
    double received[2 * BLOCK_LEN];
    double weight[BLOCK_LEN];
    double modelled[2 * BLOCK_LEN]; // what the response makes of the frame
    double response[2 * MAX_DELAYS];
    double root_prior[MAX_DELAYS]; // root of the power that each tap is expected to have
    // Of the solver:
    double matched[2 * MAX_DELAYS];
    double residual[2 * MAX_DELAYS];
    double direction[2 * MAX_DELAYS];
    double product[2 * MAX_DELAYS];
    double scaled[2 * MAX_DELAYS];
};

// Sets `spectrum` from `frame_len` values, and clears the response and what it makes of them.
void set_frame(const double* resent, uint32_t frame_len, response_model* model);

// Correlates what was received, by weight, with the frame: `matched`.
void match_frame(uint32_t delays, response_model* model);

// Expected powers for the first round, from the matched filter's output over the frame's weighted energy.
void start_prior(uint32_t delays, double energy, double noise, response_model* model);

// Expected powers for a further round, from the response of the round before and what that leaves uncertain.
void renew_prior(uint32_t delays, double energy, double noise, response_model* model);

// Approaches the response that is most probable under prior, weights and noise, from the one before on, in at most so
// many steps; then `modelled`.
void solve_response(uint32_t delays, double noise, uint32_t most_steps, response_model* model);

} // namespace kosc

#endif
