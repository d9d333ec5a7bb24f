// What the samples of a found frame tell besides its message.
#ifndef KOSC_INSPECT_FRAME_TRAITS_H
#define KOSC_INSPECT_FRAME_TRAITS_H

#include <optional>
#include <vector>

#include "kosc/context.h"

namespace kosc_inspect {

struct frame_traits {
    // Levels.
    double level_db = 0.0;             // in the modem's band, against a full-scale sine
    std::vector<double> symbol_levels; // the same of each OFDM symbol
    double step_db = 0.0;              // the largest change between neighbours but one
    double range_db = 0.0;             // from the faintest symbol to the loudest
    double fall_db = 0.0;              // from the first third of the symbols to the last
    double swing_db = 0.0;             // up again after a fall, or down again after a rise, whichever is less
    size_t faint_symbols = 0;          // nearer to the faintest than to the loudest

    size_t uneven_symbols = 0; // far from the usual amplitudes of the subcarriers

    // Pilots.
    double pilots = 0.0;                 // share of the pilots' energy that is where the frame's start puts it, 0 to 1
    double later_pilots = 0.0;           // the same of the best of those behind the synchronisation pilot
    double slip = 0.0;                   // samples by which a pilot is later than those before it
    double second_sender = 0.0;          // the same as `pilots`, of another frame that overlaps with this one
    double second_delay = 0.0;           // its start against this one's, in samples
    std::optional<double> missing_above; // Hz from which on the pilots' subcarriers are missing

    // Likeness to itself.
    double echo = 0.0;       // later: up to 1/2 for an echo as loud as the direct sound
    double echo_delay = 0.0; // in samples; where that likeness is greatest
    size_t repeated = 0;     // samples that are the same as a block shortly before
    size_t gap = 0;          // the longest pause within the frame, in samples
    double prefixes = 0.0;   // median likeness of prefixes to what they repeat, 0 to 1
    size_t jumps = 0;        // symbols between whose prefix and end the time jumps by a few samples
    size_t displaced = 0;    // symbols whose prefix, or end, is elsewhere
};

// `samples` are frame_length values in 16-bit steps.
frame_traits traits_of(const soundcomm_paras_t& paras, const double* samples);

// `missing_above` of sound that need not be a frame, where what is left of the band is even, as a frame's is.
std::optional<double> end_of_even_band(const soundcomm_paras_t& paras, const double* samples);

} // namespace kosc_inspect

#endif
