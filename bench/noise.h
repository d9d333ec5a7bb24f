// Noise for receivers of any make.
#ifndef KOSC_BENCH_NOISE_H
#define KOSC_BENCH_NOISE_H

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

constexpr size_t FRAME_COUNT = 30;
constexpr size_t SOUND_SAMPLES = FRAME_COUNT * 11520;
constexpr uint32_t MESSAGE_LEN = 28;

// White noise of about a fortieth of full scale.
inline std::vector<int16_t> make_noise()
{
    std::mt19937 generator{7};
    std::normal_distribution<double> level{0.0, 800.0};
    std::vector<int16_t> noise(SOUND_SAMPLES);
    std::generate(noise.begin(), noise.end(), [&] { return static_cast<int16_t>(std::lround(level(generator))); });
    return noise;
}

#endif
