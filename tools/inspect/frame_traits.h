// What the samples of a found frame tell besides its message.
#ifndef KOSC_INSPECT_FRAME_TRAITS_H
#define KOSC_INSPECT_FRAME_TRAITS_H

#include <vector>

#include "kosc/context.h"

namespace kosc_inspect {

struct frame_traits {
    double level_db = 0.0;             // in the modem's band, against full scale
    std::vector<double> symbol_levels; // the same of each OFDM symbol
    bool cut = false;                  // part of it is missing: the level of the others ends abruptly
    bool fading_away = false;          // the level falls symbol by symbol, as under noise suppression
    double echo = 0.0;                 // likeness to itself, later: up to 1/2 for an echo as loud as the direct sound
    double echo_delay = 0.0;           // in samples; where that likeness is greatest
};

// `samples` are frame_length values in 16-bit steps.
frame_traits traits_of(const soundcomm_paras_t& paras, const double* samples);

} // namespace kosc_inspect

#endif
