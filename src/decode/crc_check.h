// Comparison of the CRCs in a decoded block with those of its message.
#ifndef KOSC_DECODE_CRC_CHECK_H
#define KOSC_DECODE_CRC_CHECK_H

#include <cstdint>

#include "kosc/config.h"

namespace kosc {

// matches[s] = 1 when the CRC of part s is right, else 0, for all cfg.group parts. `scratch` holds crc_room() bytes.
// False when the block is too short for its CRCs or they cannot be computed.
bool compare_crcs(const crc_cfg& cfg, const uint8_t* block, uint32_t block_len, uint8_t* scratch, uint8_t* matches);

} // namespace kosc

#endif
