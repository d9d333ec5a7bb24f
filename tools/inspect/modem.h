// The modem whose recordings are inspected: its rate and frame, a receiver in a band, and what the band is called.
#ifndef KOSC_INSPECT_MODEM_H
#define KOSC_INSPECT_MODEM_H

#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>

#include "kosc/kosc.hpp"

namespace kosc_inspect {

using sound_band = ko_soundcommu_band_t;

constexpr double MODEM_RATE = kosc::SAMPLE_RATE;
constexpr int64_t FRAME_LENGTH = kosc::FRAME_SAMPLES;

// The band of whoever is told no other.
const sound_band& default_band();

// A receiver in the band; throws when it cannot be set up.
kosc::receiver make_receiver(const sound_band& band, kosc::receiver_settings settings);

// What was made; throws when it was not, with `failed` in front of the error's sentence.
template <typename T> T value_of(kosc::result<T> made, const char* failed)
{
    if (!made) {
        throw std::runtime_error(std::string(failed) + ": " + kosc::describe(made.why()));
    }
    return std::move(*made);
}

// How channels are added up if `wanted`, KOSC_COMBINING_...: two microphones of one device together; more channels than
// that may be anything.
uint32_t combining_of(uint32_t channels, bool wanted);

// How many of two microphones heard some of the frames.
inline uint32_t microphones_of(const combined_report_t& from) { return from.channels == 3 ? 2 : 1; }

// Throws when there is an error, with its sentence.
void check(kosc::error e);

// "18 and 21", or with another word between: the band's edges in kHz, for people.
std::string edges_khz(const sound_band& band, const char* between = " and ");

// By how many dB a room's sounds in the band are louder than in the near-ultrasonic one: each octave has about the same
// power of them (Voss and Clarke 1975, "1/f noise in music and speech"), and all bands are equally wide in Hz.
double room_over_ultrasound_db(const sound_band& band);

} // namespace kosc_inspect

#endif
