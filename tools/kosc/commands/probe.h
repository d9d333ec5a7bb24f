// The sound with which kosc check tries a loudspeaker and a microphone, and what a recording of it tells.
//
//     silence | sweep from 0.15 to 22.5 kHz | frames | the same sweep | silence
//
// The part of the sweep that people hear tells a missing upper band from no sound at all; the second sweep shows what
// the path does to a sound that lasts, and whether samples were lost.
#ifndef KOSC_TOOL_PROBE_H
#define KOSC_TOOL_PROBE_H

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "audio/sound_bands.h"

constexpr uint32_t PROBE_FRAMES = 6;

// With frames in that band.
std::vector<int16_t> probe_sound(const sound_band& band);

constexpr double RESPONSE_STEP = 250.0; // Hz

// What the sweep tells of a band in which no frames were sent.
struct band_prospect {
    sound_band band;
    double over_noise_db = 0.0; // what a frame would be; SILENCE_DB: nothing but noise
    double spread_db = 0.0;     // from its weakest part to its strongest
    bool good = false;          // frames would stand out, on all subcarriers
};

// Levels in dB below a full-scale sine wave, gains in dB over what was played. "In band" is in the band of the frames.
struct probe_report {
    sound_band band{};                    // of the frames
    std::vector<band_prospect> prospects; // of the bands that have a name
    bool sweep_found = false;     // a sweep was found; without it the fields of gains and times stay as they are
    double start_seconds = 0.0;   // where the played sound begins in the recording; negative when before it
    double audible_gain_db = 0.0; // from 3 to 14 kHz
    double response_low = 0.0;    // Hz, below the band
    std::vector<double> gain_db;  // by RESPONSE_STEP from response_low on; SILENCE_DB: nothing but noise
    double noise_db = 0.0;        // in band
    double signal_db = 0.0;       // of the frames, in band
    // Of the second sweep over the first, in band or audible, whichever is less; SILENCE_DB: the second is missing,
    // though the first was clear; not a number: noise may have covered the second.
    double second_sweep_gain_db = NAN;
    double frames_change_db = 0.0; // from the first frame to the last, in band
    double hush_db = 0.0;          // how much fainter the room's sounds from 0.3 to 1.5 kHz are during the frames
    double stretch_ppm = 0.0;      // time from sweep to sweep in the recording over that in the sound, less 1
    uint64_t clipped_samples = 0;
    uint32_t frames_heard = 0;
    uint32_t frames_second_look = 0; // of these, only in the second look
};

// `recording` at the modem's rate.
probe_report analyse_probe(const std::vector<int16_t>& recording, const sound_band& band);

enum class fitness { GOOD, USABLE, UNFIT };

struct probe_verdict {
    fitness fit;
    const char* cause; // one word, for programs
    std::string sentence;
    std::string advice;
};

probe_verdict judge(const probe_report& report);

// The highest band that is good, else the one that stands out most; null where nothing was heard. Of the band of the
// frames, only a good verdict counts as good.
const band_prospect* best_band(const probe_report& report, fitness of_frames);

#endif
