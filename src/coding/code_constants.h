// What the encoder's and the decoders' side of the convolutional code share.
#ifndef KOSC_CODING_CODE_CONSTANTS_H
#define KOSC_CODING_CODE_CONSTANTS_H

#include <cstdint>

namespace kosc {

constexpr uint8_t HOLE_MARKER = 0xFF; // in the place of a bit that was punctured

// A decoder refuses blocks whose survivors, one a state and step, would take more: that much would be overcommitted.
constexpr uint64_t MAX_SURVIVOR_BYTES = uint64_t{1} << 30;

} // namespace kosc

#endif
