#include "combine/microphone.h"

#include <algorithm>
#include <cmath>

#include "math/constants.h"

namespace kosc {
namespace {

constexpr uint32_t LANES = 8; // partial sums, which the compiler may keep in one register

// Sum of samples times taps, in partial sums of a fixed order.
float weigh(const float* samples, const float* taps)
{
    float sums[LANES] = {};
    uint32_t i = 0;
    for (; i + LANES <= band_mixer::TAPS; i += LANES) {
        for (uint32_t l = 0; l < LANES; ++l) {
            sums[l] += samples[i + l] * taps[i + l];
        }
    }
    float sum = 0.0F;
    for (; i < band_mixer::TAPS; ++i) {
        sum += samples[i] * taps[i];
    }
    for (const float part : sums) {
        sum += part;
    }
    return sum;
}

void make_baseband_sample(const band_mixer& mixer, microphone* input)
{
    const uint32_t mask = input->raw_len - 1;
    const uint64_t first =
        input->baseband_count * DECIMATION - band_mixer::REACH; // wraps before the start, as rings do
    float window[band_mixer::TAPS];
    for (uint32_t i = 0; i < band_mixer::TAPS; ++i) {
        window[i] = input->raw[(first + i) & mask];
    }
    const float re = weigh(window, mixer.tap_re);
    const float im = weigh(window, mixer.tap_im);
    const auto turn = static_cast<uint32_t>(input->baseband_count % band_mixer::TURNS);
    const uint32_t at = input->baseband_count++ & (input->raw_len / DECIMATION - 1);
    input->re[at] = re * mixer.turn_re[turn] - im * mixer.turn_im[turn];
    input->im[at] = re * mixer.turn_im[turn] + im * mixer.turn_re[turn];
}

} // namespace

void init_band_mixer(uint32_t first_subcarrier, band_mixer* mixer)
{
    constexpr double CUT_OFF = 2000 / WEAK_SAMPLE_RATE; // the band reaches to 1500 Hz on either side, drifted to 1600
    const double middle = 2 * PI * (first_subcarrier + WEAK_SC_NUM / 2) / WEAK_SYMBOL_LEN; // radians a sample
    double low_pass[band_mixer::TAPS];
    double sum = 0.0;
    for (uint32_t i = 0; i < band_mixer::TAPS; ++i) { // a sinc under Blackman's window
        const double x = 2 * PI * CUT_OFF * (static_cast<double>(i) - band_mixer::REACH);
        const double angle = PI * (i + 1) / (band_mixer::REACH + 1);
        low_pass[i] = (x == 0.0 ? 1.0 : std::sin(x) / x) * (0.42 - 0.5 * std::cos(angle) + 0.08 * std::cos(2 * angle));
        sum += low_pass[i];
    }
    for (uint32_t i = 0; i < band_mixer::TAPS; ++i) {
        const double angle = -middle * (static_cast<double>(i) - band_mixer::REACH);
        mixer->tap_re[i] = static_cast<float>(low_pass[i] / sum * std::cos(angle));
        mixer->tap_im[i] = static_cast<float>(low_pass[i] / sum * std::sin(angle));
    }
    for (uint32_t t = 0; t < band_mixer::TURNS; ++t) {
        mixer->turn_re[t] = static_cast<float>(std::cos(middle * DECIMATION * t));
        mixer->turn_im[t] = static_cast<float>(-std::sin(middle * DECIMATION * t));
    }
}

void take_samples(const band_mixer& mixer, const int16_t* samples, uint32_t count, microphone* input)
{
    for (uint32_t i = 0; i < count; ++i) {
        input->raw[(input->raw_count + i) & (input->raw_len - 1)] = samples[i];
    }
    input->raw_count += count;
    while (input->baseband_count * DECIMATION + band_mixer::REACH < input->raw_count) {
        make_baseband_sample(mixer, input);
    }
}

void skip(uint64_t count, microphone* input)
{
    std::fill_n(input->raw, input->raw_len, int16_t{0});
    std::fill_n(input->re, input->raw_len / DECIMATION, 0.0F);
    std::fill_n(input->im, input->raw_len / DECIMATION, 0.0F);
    input->raw_count += count;
    input->baseband_count = input->raw_count / DECIMATION;
}

} // namespace kosc
