// The bands that sound may carry messages in, and which of them a sample rate has room for.
#ifndef KOSC_TOOL_SOUND_BANDS_H
#define KOSC_TOOL_SOUND_BANDS_H

#include <cstdint>
#include <string>
#include <vector>

#include "modem.h"

using kosc_inspect::default_band;
using kosc_inspect::sound_band;
using band_list = std::vector<sound_band>;

// All bands that have a name, from the lowest up.
band_list named_bands();
// Six bands side by side, from the lowest up, that messages may sound in at once: all that loudspeakers carry.
band_list wide_bands();
// Throws when two of the bands overlap, so that messages cannot sound in both at once.
void check_apart(const band_list& bands);

// What --band takes for it: its name, or else where it begins in Hz.
std::string name_of(const sound_band& band);
// "the voice band (2016 to 4969 Hz)" or "the band from 5016 to 7969 Hz".
std::string described(const sound_band& band);

// Up to where a converter must let the bands through, in Hz: a subcarrier more, because a sender's clock may be fast.
double highest_edge(const band_list& bands);
// Whether sound at that rate has the band, with room for a converter's filter between its top and half the rate.
bool holds(uint32_t sample_rate, const sound_band& band);
// Those of the bands that it has; throws when there is none.
band_list bands_within(uint32_t sample_rate, const band_list& bands);
// A sentence about the others; empty when there are none.
std::string left_out(uint32_t sample_rate, const band_list& bands);

#endif
