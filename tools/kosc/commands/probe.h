// The sound with which kosc check tries a loudspeaker and a microphone, and what a recording of it tells.
//
//     silence | sweep from 2 to 22.5 kHz | frames | the same sweep | silence
//
// The part of the sweep that people hear tells a missing upper band from no sound at all; the second sweep shows what
// the path does to a sound that lasts, and whether samples were lost.
#ifndef KOSC_TOOL_PROBE_H
#define KOSC_TOOL_PROBE_H

#include <cstddef>
#include <cstdint>
#include <vector>

constexpr uint32_t PROBE_FRAMES = 6;

std::vector<int16_t> probe_sound();

constexpr double RESPONSE_LOW = 17000.0, RESPONSE_HIGH = 21500.0, RESPONSE_STEP = 250.0;
constexpr size_t RESPONSE_BANDS = static_cast<size_t>((RESPONSE_HIGH - RESPONSE_LOW) / RESPONSE_STEP);

// Levels in dB below a full-scale sine wave, gains in dB over what was played. "In band" is from 18 to 21 kHz.
struct probe_report {
    bool heard = false;           // a sweep was found; without it the fields of gains and times stay as they are
    double start_seconds = 0.0;   // where the played sound begins in the recording; negative when before it
    double audible_gain_db = 0.0; // from 3 to 14 kHz
    std::vector<double> gain_db;  // by RESPONSE_STEP from RESPONSE_LOW on; SILENCE_DB: nothing but noise
    double noise_db = 0.0;        // in band
    double signal_db = 0.0;       // of the frames, in band
    // Of the second sweep over the first, in band or audible, whichever is less; SILENCE_DB: the second is missing,
    // though the first was clear.
    double second_sweep_gain_db = 0.0;
    double frames_change_db = 0.0; // from the first frame to the last, in band
    double hush_db = 0.0;          // how much fainter the room's sounds from 0.3 to 1.5 kHz are during the frames
    double stretch_ppm = 0.0;      // time from sweep to sweep in the recording over that in the sound, less 1
    uint64_t clipped_samples = 0;
    uint32_t frames_heard = 0;
    uint32_t frames_second_look = 0; // of these, only in the second look
};

// `recording` at the modem's rate.
probe_report analyse_probe(const std::vector<int16_t>& recording);

enum class fitness { GOOD, USABLE, UNFIT };

struct probe_verdict {
    fitness fit;
    const char* cause; // one word, for programs
    const char* sentence;
    const char* advice;
};

probe_verdict judge(const probe_report& report);

#endif
