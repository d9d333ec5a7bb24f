// What every stage that handles QPSK values knows of them.
#ifndef KOSC_CONFIG_QPSK_CONSTANTS_H
#define KOSC_CONFIG_QPSK_CONSTANTS_H

#include <cstdint>

namespace kosc {

// Of each axis: 1/sqrt(2), one unit in the last place low. Both ends of a link rely on exactly this value.
constexpr double QPSK_AMPLITUDE = 0.7071067811865475;

constexpr double QPSK_LEVEL[] = {-QPSK_AMPLITUDE, QPSK_AMPLITUDE}; // of a zero, of a one

constexpr uint32_t QPSK_BITS = 2; // bits a value

} // namespace kosc

#endif
