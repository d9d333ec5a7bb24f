// Whether a decoded frame came through a reverberant room, and nothing else with it.
#ifndef KOSC_CANCEL_LONE_FRAME_H
#define KOSC_CANCEL_LONE_FRAME_H

#include "cancel/impulse_response.h"

namespace kosc {

// Estimates a response at once, by division of spectra: what was received, model.received, over what was sent,
// model.spectrum. A block holds both whole, so that nothing but the frame's own response is cut off where delays from
// `delays` on are left out; what another sender adds spreads over all delays. True when no two stretches of
// `symbol_len` side by side, of the `count` values received, hold more in the band than the response explains, noise of
// power `floor` a value and a share of the frame with which no frame would decode. `first` and `second` are scratch
// memory of a block each; model.modelled is used up. Source of the division, with its damping: Wiener 1949,
// "Extrapolation, interpolation and smoothing of stationary time series".
bool is_explained(uint32_t delays, uint32_t count, uint32_t symbol_len, double floor, double* first, double* second,
                  response_model* model);

} // namespace kosc

#endif
