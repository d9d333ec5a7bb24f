#include "kosc/audio_render.h"

#include <algorithm>
#include <cmath>

#include "log/log_macros.h"
#include "math/simd.h"
#include "platform/unroll.h"

using namespace kosc;

namespace {

constexpr double TOP = 32767.0;
constexpr double BOTTOM = -32768.0;
constexpr uint32_t SAMPLE_BYTES = sizeof(int16_t);

// Truncates toward zero. A sample that is not a number is silence: an all-zero frame has an infinite scale.
inline int16_t to_pcm(double v)
{
    const double number = v == v ? v : 0.0;
    const double below_top = number < TOP ? number : TOP;
    const double clipped = below_top > BOTTOM ? below_top : BOTTOM;
    return static_cast<int16_t>(static_cast<int32_t>(clipped));
}

// Independent maxima and sums, so that the latency of one addition is hidden behind the others.
constexpr uint32_t REGISTERS = 4;

struct magnitudes {
    double peak;     // the largest magnitude
    bool all_finite; // no sample is infinite or not a number
};

magnitudes measure(const double* samples, uint32_t count)
{
    simd peaks[REGISTERS] = {};
    simd sums[REGISTERS] = {}; // infinite or not a number as soon as one sample is
    uint32_t done = 0;
    for (; done + REGISTERS * SIMD_LANES <= count; done += REGISTERS * SIMD_LANES) {
        KOSC_UNROLL
        for (uint32_t k = 0; k < REGISTERS; ++k) {
            const simd level = magnitude(load_simd(samples + done + k * SIMD_LANES));
            peaks[k] = level > peaks[k] ? level : peaks[k];
            sums[k] += level;
        }
    }
    magnitudes found = {0.0, true};
    const auto add = [&found](double level) {
        found.peak = level > found.peak ? level : found.peak;
        found.all_finite = found.all_finite && std::isfinite(level);
    };
    for (uint32_t i = 0; i < REGISTERS * SIMD_LANES; ++i) {
        add(peaks[i / SIMD_LANES][i % SIMD_LANES]);
        found.all_finite = found.all_finite && std::isfinite(sums[i / SIMD_LANES][i % SIMD_LANES]);
    }
    for (; done < count; ++done) {
        add(std::fabs(samples[done]));
    }
    return found;
}

double peak_scale(double peak, double amplitude) { return TOP / peak * amplitude; }

} // namespace

bool soundcomm_make_audio(audio_format_t format, audio_gain_t gain, const double* samples, uint32_t count, int16_t* pcm)
{
    KOSC_RETURN_IF(samples == nullptr, false, "input is null.");
    KOSC_RETURN_IF(pcm == nullptr, false, "output is null.");
    KOSC_RETURN_IF(format.sample_bytes != SAMPLE_BYTES, false, "Only 2 bytes (16bit) is supported.");
    const magnitudes found = measure(samples, count);
    const double scale = gain.normalize != 0 ? peak_scale(found.peak, gain.amplitude) : gain.amplitude;
    if (found.all_finite && found.peak * std::fabs(scale) <= TOP) {
        // Nothing to clip: a loop without comparisons has a third of the instructions.
        for (uint32_t i = 0; i < count; ++i) {
            pcm[i] = static_cast<int16_t>(static_cast<int32_t>(samples[i] * scale));
        }
        return true;
    }
    for (uint32_t i = 0; i < count; ++i) {
        pcm[i] = to_pcm(samples[i] * scale);
    }
    return true;
}

double calc_peak_scale(const double* samples, uint32_t count, double amplitude)
{
    return peak_scale(measure(samples, count).peak, amplitude);
}
