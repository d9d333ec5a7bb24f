#include "dsp/fade_window.h"

double* kosc::make_kept_fade_window(fade_cfg fade) { return fade.enable == 1 ? make_fade_window(fade) : nullptr; }
