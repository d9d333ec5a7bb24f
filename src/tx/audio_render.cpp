#include "kosc/audio_render.h"

#include <algorithm>
#include <cmath>

#include "log/log_macros.h"
#include "math/pair.h"

using namespace kosc;

namespace {

constexpr double TOP = 32767.0;
constexpr double BOTTOM = -32768.0;
constexpr uint32_t SAMPLE_BYTES = sizeof(int16_t);

using int_pair = int32_t __attribute__((vector_size(8)));

// Truncates toward zero. A sample that is not a number is silence: an all-zero frame has an infinite scale.
inline int_pair to_pcm(pair v)
{
    const pair number = v == v ? v : both(0.0);
    const pair below_top = number > both(TOP) ? both(TOP) : number;
    return __builtin_convertvector(below_top < both(BOTTOM) ? both(BOTTOM) : below_top, int_pair);
}

inline pair larger(pair a, pair b) { return a > b ? a : b; }

} // namespace

bool soundcomm_make_audio(audio_format_t format, audio_gain_t gain, const double* samples, uint32_t count, int16_t* pcm)
{
    KOSC_RETURN_IF(samples == nullptr, false, "input is null.");
    KOSC_RETURN_IF(pcm == nullptr, false, "output is null.");
    KOSC_RETURN_IF(format.sample_bytes != SAMPLE_BYTES, false, "Only 2 bytes (16bit) is supported.");
    const double scale = gain.normalize != 0 ? calc_peak_scale(samples, count, gain.amplitude) : gain.amplitude;
    uint32_t i = 0;
    for (; i + PAIR <= count; i += PAIR) {
        const int_pair two = to_pcm(load_pair(samples + i) * both(scale));
        pcm[i] = static_cast<int16_t>(two[0]);
        pcm[i + 1] = static_cast<int16_t>(two[1]);
    }
    if (i < count) {
        pcm[i] = static_cast<int16_t>(to_pcm(both(samples[i] * scale))[0]);
    }
    return true;
}

double calc_peak_scale(const double* samples, uint32_t count, double amplitude)
{
    pair peaks = both(0.0);
    uint32_t i = 0;
    for (; i + PAIR <= count; i += PAIR) {
        const pair two = load_pair(samples + i);
        peaks = larger(larger(two, -two), peaks);
    }
    if (i < count) {
        peaks = larger(both(std::fabs(samples[i])), peaks);
    }
    return TOP / std::max(peaks[0], peaks[1]) * amplitude;
}
