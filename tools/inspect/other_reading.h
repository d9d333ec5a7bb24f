// Recordings whose header does not say what they are: another sample rate, another speed, other channels.
#ifndef KOSC_INSPECT_OTHER_READING_H
#define KOSC_INSPECT_OTHER_READING_H

#include <cstdint>
#include <optional>
#include <vector>

#include "modem.h"

namespace kosc_inspect {

enum class misreading { rate, speed, stereo_as_mono, mono_as_stereo };

struct other_reading {
    misreading what;
    double rate; // at which one channel of it decodes
};

// How frames decode after all in interleaved samples of -1 to 1 that are labelled with `rate` and `channels`. Only a
// message with matching CRCs counts.
std::optional<other_reading> reading_that_decodes(const std::vector<float>& interleaved, uint32_t channels,
                                                  uint32_t rate, const sound_band& band);

} // namespace kosc_inspect

#endif
