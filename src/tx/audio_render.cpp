#include "kosc/audio_render.h"

#include <algorithm>
#include <cmath>

#include "log/log_macros.h"

namespace {

constexpr double TOP = 32767.0;
constexpr double BOTTOM = -32768.0;
constexpr uint32_t SAMPLE_BYTES = sizeof(int16_t);

// Truncates toward zero. A sample that is not a number is silence: an all-zero frame has an infinite scale. Each line
// is one comparison against a constant, which processors do without a branch.
inline int16_t to_pcm(double v)
{
    const double number = v == v ? v : 0.0;
    const double below_top = number < TOP ? number : TOP;
    const double clipped = below_top > BOTTOM ? below_top : BOTTOM;
    return static_cast<int16_t>(static_cast<int32_t>(clipped));
}

constexpr uint32_t LANES = 8; // maxima found side by side

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
    double peaks[LANES] = {};
    for (uint32_t i = 0; i < count; i += LANES) {
        const uint32_t lanes = std::min(LANES, count - i);
        for (uint32_t lane = 0; lane < lanes; ++lane) {
            const double magnitude = std::fabs(samples[i + lane]);
            peaks[lane] = magnitude > peaks[lane] ? magnitude : peaks[lane];
        }
    }
    return TOP / *std::max_element(peaks, peaks + LANES) * amplitude;
}
