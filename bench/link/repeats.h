// Messages sent again and again to one microphone or two: what the receivers deliver after how many repeats.
#ifndef KOSC_LINK_REPEATS_H
#define KOSC_LINK_REPEATS_H

#include <array>
#include <set>

#include "link.h"

namespace kosc_link {

constexpr uint32_t MICROPHONES = 2;

// How the messages of a trial that are sent in turn differ.
enum class difference { RANDOM, FOUR_BYTES, ONE_BYTE, ONE_HALF, COUNTER };

// What is heard beside white noise.
enum class disturbance { NONE, SPEECH, CLICKS };

struct repeat_setup {
    const link_channel* channel = nullptr;
    uint32_t first_subcarrier = kosc::DEFAULT_SUBCARRIER;
    uint32_t repeats = 8;
    uint32_t messages = 1; // sent in turn
    difference kind = difference::RANDOM;
    uint32_t gap = 3600;          // samples of silence between frames
    double second_level_db = 0;   // what the second microphone hears of the sender against the first
    double noise_correlation = 0; // share of the noise's power that both hear alike
    std::array<uint32_t, MICROPHONES> block = {960, 960}; // samples a call
    double clip_rms = 0; // samples beyond so many times the whole sound's level are cut; 0: none
    disturbance beside = disturbance::NONE;
    double beside_db = 0; // the sender's level over the disturbance's, in all frequencies
    const signal* speech = nullptr;
    bool plain = false; // the second look alone is measured too
};

// What is compared.
enum system { SECOND_LOOK_1, SECOND_LOOK_2, COMBINED_1, COMBINED_2, SYSTEMS };

struct repeat_outcome {
    std::vector<uint32_t> first[SYSTEMS]; // for each message, the repeat that it was delivered with, from 1; 0: never
    uint32_t wrong[SYSTEMS];              // messages delivered that were not sent
    combining_counts_t counts[2];         // of one microphone, of two
};

// One trial, whose frames, channels and noise are the same at every ratio but for the noise's level. All of it depends
// on the setup and the seed alone. The setup must outlive it.
class repeat_trial {
public:
    repeat_trial(const repeat_setup& setup, uint64_t seed);
    // What the systems that are wanted deliver. Each stops to listen once it has delivered all that was sent.
    repeat_outcome hear(double snr_db, const std::array<bool, SYSTEMS>& wanted) const;

private:
    uint32_t sent_until(int64_t sample) const;
    std::vector<int16_t> record(uint32_t microphone, double snr_db) const;
    void listen(const std::array<std::vector<int16_t>, MICROPHONES>& heard, system which,
                repeat_outcome* outcome) const;

    const repeat_setup& setup_;
    band where_{};
    std::vector<std::vector<uint8_t>> messages_;
    uint32_t lead_ = 0;
    uint32_t period_ = 0;
    signal common_noise_; // of a mean power of 1, as are those below
    struct {
        signal frames; // at their level
        signal noise;
        signal beside;
    } microphone_[MICROPHONES];
};

// The four systems, or those that combine, on a trial of its own.
repeat_outcome run_repeats(const repeat_setup& setup, double snr_db, uint64_t seed);

} // namespace kosc_link

#endif
