#include "kosc/audio_render.h"

#include <algorithm>
#include <cmath>

#include "log/log_macros.h"

namespace {

constexpr double TOP = 32767.0;
constexpr double BOTTOM = -32768.0;
constexpr uint32_t SAMPLE_BYTES = sizeof(int16_t);

// Truncates toward zero. A sample that is not a number is silence: an all-zero frame has an infinite scale.
int16_t to_pcm(double v)
{
    return std::isnan(v) ? int16_t{0} : static_cast<int16_t>(std::min(std::max(v, BOTTOM), TOP));
}

} // namespace

bool soundcomm_make_audio(audio_format_t format, audio_gain_t gain, const double* samples, uint32_t count, int16_t* pcm)
{
    KOSC_RETURN_IF(samples == nullptr, false, "input is null.");
    KOSC_RETURN_IF(pcm == nullptr, false, "output is null.");
    KOSC_RETURN_IF(format.sample_bytes != SAMPLE_BYTES, false, "Only 2 bytes (16bit) is supported.");
    const double scale = gain.normalize != 0 ? calc_peak_scale(samples, count, gain.amplitude) : gain.amplitude;
    for (uint32_t i = 0; i < count; ++i) {
        pcm[i] = to_pcm(samples[i] * scale);
    }
    return true;
}

double calc_peak_scale(const double* samples, uint32_t count, double amplitude)
{
    double peak = 0.0;
    for (uint32_t i = 0; i < count; ++i) {
        peak = std::max(peak, std::fabs(samples[i]));
    }
    return TOP / peak * amplitude;
}
