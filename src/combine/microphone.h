// The last second of one channel: its samples, and the modem's band of them at complex baseband.
#ifndef KOSC_COMBINE_MICROPHONE_H
#define KOSC_COMBINE_MICROPHONE_H

#include "combine/weak_layout.h"

namespace kosc {

constexpr uint32_t DECIMATION = 8; // samples a baseband sample
constexpr double BASEBAND_RATE = WEAK_SAMPLE_RATE / DECIMATION;

// A low-pass of linear phase, moved to the middle of the band, and the phases by which its output is turned to 0 Hz.
// Source: Crochiere and Rabiner 1983, "Multirate digital signal processing", chapter 2.
struct band_mixer {
    static constexpr uint32_t REACH = 64; // samples on either side
    static constexpr uint32_t TAPS = 2 * REACH + 1;
    static constexpr uint32_t TURNS = WEAK_SYMBOL_LEN / DECIMATION; // after which the phases repeat
    float tap_re[TAPS];
    float tap_im[TAPS];
    float turn_re[TURNS];
    float turn_im[TURNS];
};

void init_band_mixer(uint32_t first_subcarrier, band_mixer* mixer);

// Samples count from 0; those before the first are silence, those that the rings no longer hold are gone.
struct microphone {
    int16_t* raw; // ring of `raw_len` samples, a power of two
    float* re;    // rings of raw_len / DECIMATION baseband samples; number n lies at sample DECIMATION * n
    float* im;
    uint32_t raw_len;
    uint64_t raw_count;      // samples heard
    uint64_t baseband_count; // baseband samples made
};

// Takes `count` samples, no more than raw_len less the mixer's taps.
void take_samples(const band_mixer& mixer, const int16_t* samples, uint32_t count, microphone* input);

// Lets `count` samples pass as silence.
void skip(uint64_t count, microphone* input);

} // namespace kosc

#endif
