// The one frame layout whose repeats are added up, in numbers, and the types of its parts.
#ifndef KOSC_COMBINE_WEAK_LAYOUT_H
#define KOSC_COMBINE_WEAK_LAYOUT_H

#include "kosc/context.h"

namespace kosc {

// Of the built-in configuration; the band is free.
constexpr uint32_t WEAK_SYMBOL_LEN = 1024;
constexpr uint32_t WEAK_SC_NUM = 64;
constexpr uint32_t WEAK_SYMBOLS = 9;
constexpr uint32_t WEAK_PILOTS = 3;
constexpr uint32_t WEAK_BITS = 768; // a frame's, as sent
constexpr uint32_t WEAK_CELLS = WEAK_SYMBOLS * WEAK_SC_NUM;
constexpr uint32_t WEAK_STEPS = 262;  // bits of a block and its tail
constexpr uint32_t WEAK_MSG_LEN = 28; // bytes
constexpr uint32_t MAX_INPUTS = 2;    // microphones that are heard together

constexpr double WEAK_SAMPLE_RATE = 48000;

} // namespace kosc

#endif
