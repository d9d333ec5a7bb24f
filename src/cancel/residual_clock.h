// What the drift search leaves of a sender's drift, measured by the decoded symbols.
#ifndef KOSC_CANCEL_RESIDUAL_CLOCK_H
#define KOSC_CANCEL_RESIDUAL_CLOCK_H

#include "cancel/baseband.h"
#include "second_look/frame_clock.h"

namespace kosc {

constexpr uint32_t NEAR_DELAYS = 40; // delays that are correlated, most of a prefix
constexpr uint32_t MAX_SYMBOLS = 32; // of a frame whose clock can be refined

// Scratch memory.
struct clock_scratch {
    double channel[MAX_SYMBOLS][2 * NEAR_DELAYS]; // what each symbol went through: a complex value a delay
    double joint[2 * NEAR_DELAYS];
    double phases[MAX_SYMBOLS];
};

// Corrects the clock, to which `resent` was made, by the phases of the data symbols in `received`, whose first value
// lies LEAD values before the frame's start. Pilots are left out: those of another frame that happens to be aligned
// with this one would be taken for its own. Returns by how many radians the phase at the frame's ends was wrong.
double refine_clock(const soundcomm_paras_t& paras, const baseband& b, const double* resent, const double* received,
                    clock_scratch* scratch, frame_clock* clock);

} // namespace kosc

#endif
