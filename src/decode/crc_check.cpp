#include "decode/crc_check.h"

#include <climits>
#include <cstring>

#include "kosc/crc.h"

namespace kosc {
namespace {

// Position of the CRC of part `s` in a block of `payload_len` message bytes and its CRCs.
uint32_t crc_position(const crc_cfg& cfg, uint32_t payload_len, uint32_t s)
{
    const uint32_t crcs_before = s * (cfg.bits / CHAR_BIT);
    const uint32_t parts_before = cfg.put_crc == KOSC_CRC_AT_LAST ? cfg.group : s + 1;
    return cfg.put_crc == KOSC_CRC_AT_LAST ? payload_len + crcs_before
                                           : parts_before * (payload_len / cfg.group) + crcs_before;
}

} // namespace

bool compare_crcs(const crc_cfg& cfg, const uint8_t* block, uint32_t block_len, uint8_t* scratch, uint8_t* matches)
{
    const uint32_t crc_bytes = cfg.bits / CHAR_BIT;
    const uint64_t total = uint64_t{crc_bytes} * cfg.group;
    if (total > block_len) {
        return false;
    }
    const auto payload_len = static_cast<uint32_t>(block_len - total);
    if (calculate_crc(block, payload_len, &cfg, scratch) != total) {
        return false;
    }
    for (uint32_t s = 0; s < cfg.group; ++s) {
        const uint8_t* const received = block + crc_position(cfg, payload_len, s);
        matches[s] = std::memcmp(received, &scratch[size_t{s} * crc_bytes], crc_bytes) == 0 ? 1 : 0;
    }
    return true;
}

} // namespace kosc
