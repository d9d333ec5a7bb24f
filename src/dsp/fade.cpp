#include "kosc/fade.h"

#include "dsp/fade_window.h"
#include "kosc/filter.h"
#include "log/log_macros.h"
#include "platform/owned.h"

using namespace kosc;

namespace kosc {

double* make_fade_window(fade_cfg fade)
{
    const uint64_t length = uint64_t{2} * fade.len;
    double* const window = length <= UINT32_MAX ? alloc_zeroed<double>(length) : nullptr;
    if (window != nullptr) {
        blackman(static_cast<uint32_t>(length), window);
    }
    return window;
}

void apply_fade(const double* window, uint32_t fade_len, double* samples, uint32_t len)
{
    double* const last = samples + (len - fade_len);
    for (uint32_t k = 0; k < fade_len; ++k) {
        samples[k] *= window[k];
        last[k] *= window[fade_len + k];
    }
}

} // namespace kosc

void do_fade_in_out(fade_cfg fade, double* samples, uint32_t len)
{
    if (samples == nullptr || fade.enable != 1 || fade.len == 0 || fade.len > len) {
        return;
    }
    const block_ptr<double> window{make_fade_window(fade)};
    if (!window) {
        KOSC_LOG_WARN("Fail to do fade in out.");
        return;
    }
    apply_fade(window.get(), fade.len, samples, len);
}
