#include "kosc/fade.h"

#include "kosc/filter.h"
#include "log/log_macros.h"
#include "platform/owned.h"

using namespace kosc;

void do_fade_in_out(fade_cfg fade, double* samples, uint32_t len)
{
    if (samples == nullptr || fade.enable != 1 || fade.len == 0 || fade.len > len) {
        return;
    }
    const size_t window_len = size_t{2} * fade.len;
    const block_ptr<double> window{window_len <= UINT32_MAX ? alloc_zeroed<double>(window_len) : nullptr};
    if (!window) {
        KOSC_LOG_WARN("Fail to do fade in out.");
        return;
    }
    blackman(static_cast<uint32_t>(window_len), window.get());
    double* const last = samples + (len - fade.len);
    for (uint32_t k = 0; k < fade.len; ++k) {
        samples[k] *= window[k];
        last[k] *= window[fade.len + k];
    }
}
