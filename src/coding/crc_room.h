// Room for the CRCs of a block, which encoder and decoder compute apart from the message.
#ifndef KOSC_CODING_CRC_ROOM_H
#define KOSC_CODING_CRC_ROOM_H

#include <algorithm>
#include <climits>

#include "kosc/config.h"

namespace kosc {

constexpr uint32_t CRC16_BYTES = 2; // that calculate_crc() writes for each part, whatever width is configured

// Bytes that calculate_crc() needs: what it writes, or what it reports where more is configured.
inline uint64_t crc_room(const crc_cfg& cfg)
{
    return std::max<uint64_t>(cfg.bits / CHAR_BIT, CRC16_BYTES) * cfg.group;
}

} // namespace kosc

#endif
