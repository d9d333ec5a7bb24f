// Sounds that hold no message, many of them made to be taken for one.
#ifndef KOSC_TESTS_LONG_NON_SIGNALS_H
#define KOSC_TESTS_LONG_NON_SIGNALS_H

#include <array>
#include <string>

#include "channels.h"
#include "kosc/core.h"
#include "kosc/kosc.hpp"

// What the sounds are made of.
struct sound_source {
    kosc_link::random_source random;
    const soundcomm_paras_t* modem; // the parameter set that frames are made with, and in whose band much of it lies
    std::vector<int16_t> speech;    // may be empty, if no kind with speech is asked for
    kosc_link::signal music{};      // likewise
    std::vector<std::array<uint8_t, kosc::MESSAGE_BYTES>> spoilt{}; // what the frames carried that were spoilt
};

// A kind of sound. `fill` writes over a segment of silence, with levels and shapes of its own in each segment.
struct sound_kind {
    const char* name;
    double share; // of the time
    void (*fill)(kosc_link::signal* out, sound_source* source);
    bool is_speech;
};

// Those with frames cost most to listen to, and have small shares. None leaves so much of one message that a receiver
// could restore it: data symbols of one frame are at most a quarter, or half with a contradicting other half.
const std::vector<sound_kind>& sound_kinds();

// Cuts to 16 bits, and the fraction off: what kosc_link::to_pcm() does slowly and to the nearest.
std::vector<int16_t> to_samples(const kosc_link::signal& sound);

// Speech of 22050 Hz as espeak-ng writes it, every sample twice: the steps put images of it into the modem's band.
std::vector<int16_t> read_speech(const std::string& name);

#endif
