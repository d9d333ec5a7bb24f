// The window behind the fade, for callers that fade many blocks alike.
#ifndef KOSC_DSP_FADE_WINDOW_H
#define KOSC_DSP_FADE_WINDOW_H

#include "kosc/config.h"

namespace kosc {

// 2 * fade.len doubles, for free(): the rise, then the fall. Null when memory is short.
double* make_fade_window(fade_cfg fade);

// The window for a context to keep: null also when fading is off.
double* make_kept_fade_window(fade_cfg fade);

// Fades both ends of `len` samples, `fade_len` at each; `fade_len` does not exceed `len`.
void apply_fade(const double* window, uint32_t fade_len, double* samples, uint32_t len);

} // namespace kosc

#endif
