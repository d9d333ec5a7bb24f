// What the receivers of the benchmarks listen to.
#ifndef KOSC_BENCH_SOUNDS_H
#define KOSC_BENCH_SOUNDS_H

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "kosc/core.h"

constexpr size_t SOUND_SAMPLES = 30 * 11520;
constexpr uint32_t MESSAGE_LEN = 28;

inline void ignore_messages(const decode_result_t*, uint32_t) {}

// White noise of about a fortieth of full scale.
inline std::vector<int16_t> make_noise()
{
    std::mt19937 generator{7};
    std::normal_distribution<double> level{0.0, 800.0};
    std::vector<int16_t> noise(SOUND_SAMPLES);
    std::generate(noise.begin(), noise.end(), [&] { return static_cast<int16_t>(std::lround(level(generator))); });
    return noise;
}

// Thirty frames with different messages, one right behind the other.
inline std::vector<int16_t> make_frames()
{
    log_level = 0;
    std::vector<int16_t> sound(SOUND_SAMPLES);
    soundcommu_handle_t* const handle = ko_soundcommu_init(ignore_messages, ignore_messages);
    for (uint32_t frame = 0; frame < SOUND_SAMPLES / 11520; ++frame) {
        uint8_t message[MESSAGE_LEN];
        for (uint32_t i = 0; i < MESSAGE_LEN; ++i) {
            message[i] = static_cast<uint8_t>(37 * frame + 11 * i * i);
        }
        ko_soundcommu_encode(handle, message, MESSAGE_LEN, sound.data() + size_t{11520} * frame, 23040);
    }
    ko_soundcommu_release(handle);
    return sound;
}

#endif
