// A whole way from a loudspeaker into a recording, put together from the channel models.
#ifndef KOSC_LINK_PATH_H
#define KOSC_LINK_PATH_H

#include <optional>

#include "channels.h"

namespace kosc_link {

enum class noise_kind { white, pink, speech };

// What happens to the sound, in this order; by default nothing.
struct sound_path {
    double drift_ppm = 0.0;       // the sender's clock against the recorder's
    std::vector<tap> echoes;      // besides the direct sound
    double room_rt60 = 0.0;       // seconds; a diffuse tail 6 dB below the direct sound
    std::optional<double> snr_db; // of the loud parts; white noise counts within the band, sound and others whole
    noise_kind noise = noise_kind::white;
    band sent_in{};                 // where messages are sent
    bool within_band = false;       // sound and noise of any kind count there alone
    std::optional<double> low_pass; // Hz
    double gain_db = 0.0;
    std::optional<double> clip; // samples are cut to this share of 16 bits' full scale
};

// What arrives of `in`, which is at 48 kHz. Longer by the tails of echoes and room.
signal pass(const signal& in, const sound_path& path, random_source* random);

// Noise of power 1. Pink noise falls by 3 dB an octave from 20 Hz on. "Speech" has the spectrum of many talkers,
// falling by 12 dB an octave above 500 Hz, and four syllables a second.
signal make_noise(noise_kind kind, size_t length, random_source* random);

// The amplitude that a level in dB stands for.
double from_db(double db);

// Power of the parts that are within 30 dB of the loudest hundredth of a second: pauses do not count.
double loud_power(const signal& in);

} // namespace kosc_link

#endif
