#include "combine/rivals.h"

#include <algorithm>

#include "coding/conv_steps.h"
#include "coding/viterbi_rival.h"
#include "kosc/crc.h"

namespace kosc {
namespace {

constexpr float MARGIN = 5; // logarithm of the odds
constexpr uint32_t BLOCK_BYTES = WEAK_MSG_LEN + 2 * CRC_PARTS;
constexpr uint32_t MAX_PATHS = 64;

// A path that leaves the decoded one and comes back.
struct path {
    uint32_t first;
    uint32_t end;
    float odds;        // logarithm of the decoded one's against it
    uint32_t syndrome; // what the two CRCs see of the difference
};

uint32_t syndrome_of(const uint8_t* changes)
{
    constexpr uint32_t HALF = WEAK_MSG_LEN / CRC_PARTS;
    uint8_t bytes[BLOCK_BYTES];
    bin2byte(bytes, changes, 8 * BLOCK_BYTES);
    uint32_t syndrome = 0;
    for (uint32_t part = 0; part < CRC_PARTS; ++part) {
        const uint8_t* const crc = bytes + WEAK_MSG_LEN + 2 * part;
        const uint32_t seen = crc_update(0, bytes + HALF * part, HALF) ^ (uint32_t{crc[0]} << 8 | crc[1]);
        syndrome |= seen << 16 * part;
    }
    return syndrome;
}

float odds_of(const uint8_t* bits, uint32_t first, uint32_t end, const group_decoder& d)
{
    const conv_code_t& code = *d.decoder.paras->conv_code;
    const uint32_t* const position = d.decoder.position + size_t{first} * code.polynomial_num;
    const float* const sign = d.sign;
    float odds = 0.0F;
    conv_encode(code, bits + first, end - first + 2 - code.constraint, [&](size_t j, uint8_t bit) {
        if (bit != 0 && position[j] != NO_POSITION) {
            odds += sign[position[j]] * d.sum[position[j]];
        }
    });
    return odds;
}

uint32_t list_paths(const uint8_t* bits, const group_decoder& d, path* paths)
{
    uint32_t count = 0;
    for (uint32_t end = 0; end < WEAK_STEPS && count < MAX_PATHS; ++end) {
        uint8_t changes[WEAK_STEPS] = {};
        path found{find_rival(*d.decoder.viterbi, bits, end, changes), end, 0.0F, 0};
        if (found.first == NO_RIVAL) {
            continue;
        }
        found.odds = odds_of(changes, found.first, end, d);
        if (found.odds < MARGIN) {
            found.syndrome = syndrome_of(changes);
            paths[count++] = found;
        }
    }
    return count;
}

} // namespace

bool has_rival(const uint8_t* bits, const group_decoder& decoder)
{
    path paths[MAX_PATHS];
    const uint32_t count = list_paths(bits, decoder, paths);
    for (uint32_t a = 0; a < count; ++a) {
        if (paths[a].syndrome == 0) {
            return true;
        }
        for (uint32_t b = a + 1; b < count; ++b) {
            const float odds = paths[a].odds + paths[b].odds;
            if (paths[b].first <= paths[a].end || odds > MARGIN) {
                continue;
            }
            const uint32_t syndrome = paths[a].syndrome ^ paths[b].syndrome;
            const bool closes = std::any_of(paths + b + 1, paths + count, [&](const path& c) {
                return c.first > paths[b].end && odds + c.odds < MARGIN && c.syndrome == syndrome;
            });
            if (syndrome == 0 || closes) {
                return true;
            }
        }
    }
    return false;
}

} // namespace kosc
