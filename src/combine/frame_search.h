// Where frames may begin that are too weak for the receiver's own search: all pilots at once, at any drift.
#ifndef KOSC_COMBINE_FRAME_SEARCH_H
#define KOSC_COMBINE_FRAME_SEARCH_H

#include "combine/float_fft.h"
#include "combine/microphone.h"

namespace kosc {

constexpr uint32_t SEARCH_PILOT_LEN = WEAK_SYMBOL_LEN / DECIMATION;
constexpr uint32_t SEARCH_BLOCK = FLOAT_FFT_LEN - SEARCH_PILOT_LEN; // positions of a transform
constexpr uint32_t SEGMENT_LEN = 2 * SEARCH_BLOCK;                  // frame starts of a step, in baseband samples
constexpr uint32_t SEARCH_BLOCKS = 5;                               // that a segment's frames reach over
constexpr uint32_t SEARCH_SPAN = SEARCH_BLOCKS * SEARCH_BLOCK;
constexpr uint32_t SEARCH_AROUND =
    8; // positions on either side of a segment, where the other input may hear its frames
constexpr uint32_t SEARCH_POSITIONS = 2 * (SEGMENT_LEN + 2 * SEARCH_AROUND); // halves of a baseband sample
constexpr double SEARCH_RATE_STEP = 601e-6; // hypotheses of drift; one bin of the transform at 19.5 kHz
constexpr int SEARCH_RATE_REACH = 7;        // on either side

// A place where the pilots are heard.
struct candidate {
    float score;              // sum over inputs and pilots of |correlation|^2 over energy, each up to 1
    double start[MAX_INPUTS]; // of the frame, in samples, as each input has it
    double rate;              // hypothesis of its drift
};

// What a search writes; nothing of it is read again by the next one. `input` has as many members as there are inputs.
struct search_scratch {
    float first_pilot[SEARCH_POSITIONS + 2 * SEARCH_BLOCK]; // normalised energies under one hypothesis
    float later_pilots[2 * SEARCH_SPAN];
    float nearby[SEARCH_POSITIONS]; // highest of the second input from here to twice what sound may be apart
    float best[2 * SEGMENT_LEN];    // over the hypotheses
    int8_t best_rate[2 * SEGMENT_LEN];
    struct {
        float_points spectrum[SEARCH_BLOCKS];
        float inverse_energy[SEARCH_SPAN];
        float sum[SEARCH_POSITIONS];
    } input[MAX_INPUTS];
};

// A search, with its memory.
struct frame_search {
    float_fft fft;
    float_points pilot[2];        // spectra of the two pilot sequences at baseband, of unit energy
    uint32_t window[WEAK_PILOTS]; // starts of the pilots' windows in a frame, in baseband samples
    double bins_per_rate;         // bins of the transform that a drift of 1 shifts the band by
    search_scratch* scratch;      // not owned
};

void init_frame_search(const soundcomm_paras_t& paras, frame_search* search);

// Baseband samples behind the first start of a segment that a search of it reads.
constexpr uint32_t SEGMENT_READS = 1280 * 2 / DECIMATION + SEARCH_SPAN + SEARCH_PILOT_LEN;

// The best candidate among the frames that begin within SEGMENT_LEN baseband samples from `first` on, which must be at
// least SEARCH_AROUND. With two inputs the scores of both are summed where they hear a frame within 0.7 ms.
candidate search_segment(const microphone* const* inputs, uint32_t input_num, uint64_t first, frame_search* search);

} // namespace kosc

#endif
