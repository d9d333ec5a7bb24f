// A frame too weak to decode alone, as it is kept, and how it comes from a candidate of the search.
#ifndef KOSC_COMBINE_WEAK_FRAME_H
#define KOSC_COMBINE_WEAK_FRAME_H

#include "combine/frame_search.h"
#include "combine/learnt_channel.h"
#include "second_look/drift_near.h"

namespace kosc {

// A received frame. Its numbers are kept in 8 bits: of received values the rounding lies 40 dB below them, of ratios it
// is a twentieth.
struct weak_frame {
    bool used;
    uint32_t input;
    double start;                    // in samples, as that input counts
    double rate;                     // of its drift, in the middle of the frame
    double coherence;                // of its pilots alone
    double snr;                      // of a subcarrier, as a ratio
    float unit;                      // of `received`
    int8_t received[2 * WEAK_CELLS]; // subcarrier values, drift removed
    int8_t llr[WEAK_BITS];           // in units of LLR_UNIT, in the order sent
};

constexpr float LLR_UNIT = MAX_LLR / 127;

// What turns samples into soft bits, with its memory.
struct weak_frame_maker {
    const soundcomm_paras_t* paras;
    drift_search_t* search[MAX_INPUTS]; // owned
    channel_smoother_t* smoother;       // owned
    double* samples[MAX_INPUTS];        // frame_length each; the first are the channel's
    frame_channel channel;
    learnt_channel learnt;
    double* sent; // symbols rows of sc_num complex values: the pilots, and the data symbols that were decided last
    float llr[WEAK_BITS];
};

// `length` samples from `start` on, rounded; false when the ring does not hold them all.
bool fetch_samples(const microphone& input, double start, uint32_t length, double* samples);

// Examines a candidate: finds its drift, and fills a frame for each input. Their number; 0 where too little of the
// pilots' energy adds up or the samples are not there.
uint32_t take_weak_frames(const microphone* const* inputs, const uint32_t* input_numbers, uint32_t input_num,
                          const candidate& found, weak_frame_maker* maker, weak_frame* frames);

// The soft bits of what lies in maker->channel.received, and their SNR, into a frame whose place and drift are known.
void take_received(weak_frame_maker* maker, weak_frame* frame);

// The frame's soft bits anew, under a drift whose rate differs by `turn_rate`: from its pilots, or, with `decided`,
// from all its symbols as in maker->sent. Into maker->llr; the SNR that was measured.
double soften_again(const weak_frame& frame, double turn_rate, bool decided, weak_frame_maker* maker);

// The frame's pilots under its own drift, into maker->channel.
channel_estimate measure_pilots(const weak_frame& frame, weak_frame_maker* maker);

// Radians by which the middle of symbol `i` turns when the drift's rate is wrong by `rate`, against the frame's middle.
double turn_of_symbol(const soundcomm_paras_t& paras, double rate, uint32_t i);

void keep_llr(const float* llr, int8_t* kept);

} // namespace kosc

#endif
