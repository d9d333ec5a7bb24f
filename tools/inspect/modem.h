// The modem whose recordings are inspected: its rate and frame, a receiver of it in a band, and what the band is
// called.
#ifndef KOSC_INSPECT_MODEM_H
#define KOSC_INSPECT_MODEM_H

#include <cstdint>
#include <string>

#include "kosc/kosc.hpp"

namespace kosc_inspect {

using sound_band = ko_soundcommu_band_t;

constexpr double MODEM_RATE = kosc::SAMPLE_RATE;
constexpr int64_t FRAME_LENGTH = kosc::FRAME_SAMPLES;

// A receiver of one channel, KOSC_SECOND_LOOK_... and KOSC_CROWD_...; throws when it cannot be set up.
kosc::context_ptr make_receiver(const sound_band& band, uint32_t second_look, uint32_t crowd = KOSC_CROWD_OFF);

// "18 and 21", or with another word between: the band's edges in kHz, for people.
std::string edges_khz(const sound_band& band, const char* between = " and ");

// By how many dB a room's sounds in the band are louder than in the near-ultrasonic one: each octave has about the same
// power of them (Voss and Clarke 1975, "1/f noise in music and speech"), and all bands are equally wide in Hz.
double room_over_ultrasound_db(const sound_band& band);

} // namespace kosc_inspect

#endif
