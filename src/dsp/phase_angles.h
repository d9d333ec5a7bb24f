// The fixed angles of the two phase patterns.
#ifndef KOSC_DSP_PHASE_ANGLES_H
#define KOSC_DSP_PHASE_ANGLES_H

#include <cstdint>

namespace kosc {

constexpr uint32_t SHORT_PATTERN_LEN = 4;
constexpr uint32_t LONG_PATTERN_LEN = 512;

// Radians.
extern const double SHORT_PATTERN[SHORT_PATTERN_LEN];

// Degrees, one a subcarrier; the pattern uses as many as there are subcarriers.
extern const uint16_t LONG_PATTERN[LONG_PATTERN_LEN];

} // namespace kosc

#endif
