#include "cancel/lone_frame.h"

#include <algorithm>
#include <cmath>

#include "math/complex_ops.h"

namespace kosc {
namespace {

constexpr uint32_t EARLY = 128;         // delays before the first value: what a band with hard edges rings
constexpr uint32_t BAND_END = 512;      // bin: the subcarriers take half of the spectrum
constexpr uint32_t EDGE = 16;           // bins at either end of the band, where cutting off delays leaves most
constexpr double LEAST_NOISE = 1e-4;    // of what was received, which is taken to be noise at least
constexpr double MORE_THAN_NOISE = 2.2; // times the floor: what is left of two symbols scatters that much
constexpr double LEAST_SHARE = 0.005;   // of the frame's power: quieter frames below it would not decode
static_assert(BAND_END == BLOCK_LEN / 4);

double power(kom_complex z) { return z.re * z.re + z.im * z.im; }

double sum_power(const double* data, uint32_t count)
{
    double sum = 0.0;
    for (uint32_t k = 0; k < count; ++k) {
        sum += power(load(data, k));
    }
    return sum;
}

// Wiener's weight of each tap, its power over that with the noise, by the mean of a short run of delays.
void shrink_taps(uint32_t delays, double noise, double* taps)
{
    constexpr uint32_t RUN = 8;
    for (uint32_t d = 0; d < delays; d += RUN) {
        const uint32_t count = std::min(RUN, delays - d);
        double* const run = taps + size_t{2} * d;
        const double gain = std::max(1.0 - noise * count / std::max(sum_power(run, count), 1e-30), 0.0);
        for (uint32_t k = 0; k < 2 * count; ++k) {
            run[k] *= gain;
        }
    }
}

// Sets what lies outside the band, less `edge` bins at either end, to zero.
void keep_band(uint32_t edge, double* spectrum)
{
    std::fill(spectrum + size_t{2} * (BAND_END - edge), spectrum + size_t{2} * (BLOCK_LEN - BAND_END + edge), 0.0);
}

} // namespace

// h = inverse transform of Y*conj(S) / (|S|^2 + damping), with the damping as much of the mean |S|^2 in the band as
// noise has of what was received; then Wiener's weights on the taps, whose noise shows at the delays that are left out.
// Inverse transforms are forward ones between two conjugations.
bool is_explained(uint32_t delays, uint32_t count, uint32_t symbol_len, double floor, double* first, double* second,
                  response_model* m)
{
    double* const taps = second;
    std::copy_n(m->received, 2 * BLOCK_LEN, m->modelled);
    transform_block(m->fft, m->modelled, first);
    keep_band(0, first);
    const double received = sum_power(first, BLOCK_LEN);
    const double noise = std::max(floor * count * BLOCK_LEN / std::max(received, 1e-30), LEAST_NOISE);
    const double damping = noise * sum_power(m->spectrum, BLOCK_LEN) / (2 * BAND_END);
    for (uint32_t k = 0; k < BLOCK_LEN; ++k) {
        const kom_complex s = load(m->spectrum, k);
        const kom_complex y = load(first, k);
        const double scale = 1.0 / (BLOCK_LEN * (power(s) + damping));
        store(m->modelled, k, {scale * (y.re * s.re + y.im * s.im), scale * (y.re * s.im - y.im * s.re)});
    }
    transform_block(m->fft, m->modelled, taps); // conjugate
    const uint32_t beyond = BLOCK_LEN - EARLY - delays;
    const double tap_noise = sum_power(taps + size_t{2} * delays, beyond) / beyond;
    std::fill_n(taps + size_t{2} * delays, size_t{2} * beyond, 0.0);
    shrink_taps(delays, tap_noise, taps);
    shrink_taps(EARLY, tap_noise, taps + size_t{2} * (BLOCK_LEN - EARLY));
    for (uint32_t d = 0; d < BLOCK_LEN; ++d) {
        taps[2 * d + 1] = -taps[2 * d + 1];
    }
    transform_block(m->fft, taps, m->modelled);
    for (uint32_t k = 0; k < BLOCK_LEN; ++k) {
        const kom_complex left = load(first, k) - load(m->modelled, k) * load(m->spectrum, k);
        store(first, k, {left.re * (1.0 / BLOCK_LEN), -left.im * (1.0 / BLOCK_LEN)});
    }
    keep_band(EDGE, first);
    transform_block(m->fft, first, second);
    const double most = MORE_THAN_NOISE * floor + LEAST_SHARE * received / BLOCK_LEN / count;
    const uint32_t length = 2 * symbol_len;
    for (uint32_t from = LEAD; from + length <= count; from += symbol_len) {
        if (sum_power(second + size_t{2} * from, length) > most * length) {
            return false;
        }
    }
    return true;
}

} // namespace kosc
