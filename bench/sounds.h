// What the receivers of the benchmarks listen to.
#ifndef KOSC_BENCH_SOUNDS_H
#define KOSC_BENCH_SOUNDS_H

#include "kosc/core.h"
#include "noise.h"

inline void ignore_messages(const decode_result_t*, uint32_t) {}

// Thirty frames with different messages, one right behind the other.
inline std::vector<int16_t> make_frames()
{
    log_level = 0;
    std::vector<int16_t> sound(SOUND_SAMPLES);
    soundcommu_handle_t* const handle = ko_soundcommu_init(ignore_messages, ignore_messages);
    for (uint32_t frame = 0; frame < FRAME_COUNT; ++frame) {
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
