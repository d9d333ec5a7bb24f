#include "message.h"

#include <algorithm>
#include <cstring>

#include "little_endian.h"
#include "siphash.h"

namespace kosc_transfer {
namespace {

// Never the first byte of a character in UTF-8; the low three bits are the version, 1.
constexpr uint64_t MARKER = 0xF9;

// The header as one number, highest byte first.
constexpr uint32_t MARKER_AT = 56;
constexpr uint32_t ID_AT = 40;
constexpr uint32_t CHECK_AT = 29;
constexpr uint32_t SIZE_AT = 18;
constexpr uint32_t ID_BITS = MARKER_AT - ID_AT;
constexpr uint32_t CHECK_BITS = ID_AT - CHECK_AT;
constexpr uint32_t SIZE_BITS = CHECK_AT - SIZE_AT;
constexpr uint32_t NUMBER_BITS = SIZE_AT;

constexpr uint32_t LEN_BYTES = 3;
constexpr uint32_t CHECK_BYTES = 8;
static_assert(LEN_BYTES + 1 + CHECK_BYTES == PREFIX_BYTES, "length, kind, check");

// A size code is a small floating-point number of 8 bits: exact up to 255 messages, within 1/128 above.
constexpr uint32_t MANTISSA_BITS = 7;
constexpr uint32_t MANTISSAS = 1 << MANTISSA_BITS;
constexpr uint32_t EXACT_CODES = 2 * MANTISSAS;

// Larger transfers are cut, so that decoding, whose time grows as the square of a block, is a matter of a second.
constexpr uint32_t MOST_IN_BLOCK = 16384;
constexpr uint32_t MOST_NEEDED = 52480; // the code above (PREFIX_BYTES + KOSC_TRANSFER_MAX_BYTES) / SYMBOL_BYTES

// Public keys, one for each use: the letters "kosc" and the use.
constexpr uint64_t FAMILY_KEY = 0x6b6f7363;
enum key_use : uint64_t { PAYLOAD_KEY = 1, ID_KEY = 2, MESSAGE_KEY = 3 };

constexpr uint32_t KNUTH_MULTIPLIER = 2654435761; // 2^32 over the golden ratio: Knuth 1973, volume 3, section 6.4
constexpr uint32_t SCATTER_SHIFT = 24;

uint64_t bits_of(uint64_t word, uint32_t at, uint32_t count) { return word >> at & ((uint64_t{1} << count) - 1); }

uint64_t load_header(const uint8_t* message)
{
    uint64_t word = 0;
    for (uint32_t i = 0; i < HEADER_BYTES; ++i) {
        word = word << 8 | message[i];
    }
    return word;
}

void store_header(uint8_t* message, uint64_t word)
{
    for (uint32_t i = HEADER_BYTES; i-- > 0; word >>= 8) {
        message[i] = static_cast<uint8_t>(word);
    }
}

// The check over a message in which the check's own bits are zero.
uint64_t message_check(uint64_t header, const uint8_t* content)
{
    uint8_t message[KOSC_TRANSFER_MESSAGE_BYTES];
    store_header(message, header);
    std::memcpy(message + HEADER_BYTES, content, SYMBOL_BYTES);
    return bits_of(siphash(FAMILY_KEY, MESSAGE_KEY, message, sizeof(message)), 0, CHECK_BITS);
}

} // namespace

uint32_t layout::block_of(uint32_t number) const
{
    const uint32_t scattered = number / blocks * KNUTH_MULTIPLIER >> SCATTER_SHIFT;
    return (number ^ scattered) & (blocks - 1);
}

layout layout_of(uint32_t size_code)
{
    const uint32_t exponent = size_code < EXACT_CODES ? 0 : size_code / MANTISSAS - 1;
    const uint32_t needed = size_code < EXACT_CODES ? size_code : (MANTISSAS + size_code % MANTISSAS) << exponent;
    if (needed > MOST_NEEDED) {
        return {0, 1, 0};
    }
    uint32_t blocks = 1;
    while (needed > blocks * MOST_IN_BLOCK) {
        blocks *= 2; // which divides `needed`, as such codes have an exponent of 7 or more
    }
    return {needed, blocks, needed / blocks};
}

uint32_t size_code_of(uint32_t payload_len)
{
    uint32_t mantissa = (PREFIX_BYTES + payload_len + SYMBOL_BYTES - 1) / SYMBOL_BYTES;
    uint32_t exponent = 0;
    for (; mantissa >= EXACT_CODES; ++exponent) {
        mantissa = (mantissa + 1) / 2;
    }
    return exponent * MANTISSAS + mantissa;
}

stream_prefix load_prefix(const uint8_t* bytes)
{
    return {static_cast<uint32_t>(load_le(bytes, LEN_BYTES)), bytes[LEN_BYTES],
            load_le(bytes + LEN_BYTES + 1, CHECK_BYTES)};
}

void store_prefix(uint8_t* bytes, const stream_prefix& prefix)
{
    store_le(bytes, prefix.len, LEN_BYTES);
    bytes[LEN_BYTES] = static_cast<uint8_t>(prefix.kind);
    store_le(bytes + LEN_BYTES + 1, prefix.check, CHECK_BYTES);
}

uint64_t payload_check(const uint8_t* payload, uint32_t len, uint32_t kind)
{
    return siphash(FAMILY_KEY ^ uint64_t{kind} << 32, PAYLOAD_KEY ^ uint64_t{len} << 32, payload, len);
}

uint32_t transfer_id(uint64_t check, uint32_t nonce)
{
    uint8_t bytes[CHECK_BYTES + sizeof(nonce)];
    store_le(bytes, check, CHECK_BYTES);
    store_le(bytes + CHECK_BYTES, nonce, sizeof(nonce));
    return static_cast<uint32_t>(bits_of(siphash(FAMILY_KEY, ID_KEY, bytes, sizeof(bytes)), 0, ID_BITS));
}

void write_message(uint8_t* message, const message_header& header, const symbol& content)
{
    const uint64_t word = MARKER << MARKER_AT | uint64_t{header.id} << ID_AT | uint64_t{header.size_code} << SIZE_AT |
                          uint64_t{header.number};
    store_symbol(message + HEADER_BYTES, content);
    store_header(message, word | message_check(word, message + HEADER_BYTES) << CHECK_AT);
}

bool read_message(const uint8_t* message, message_header* header)
{
    const uint64_t word = load_header(message);
    const uint64_t check = bits_of(word, CHECK_AT, CHECK_BITS);
    *header = {static_cast<uint32_t>(bits_of(word, ID_AT, ID_BITS)),
               static_cast<uint32_t>(bits_of(word, SIZE_AT, SIZE_BITS)),
               static_cast<uint32_t>(bits_of(word, 0, NUMBER_BITS))};
    const layout shape = layout_of(header->size_code);
    return word >> MARKER_AT == MARKER && shape.needed != 0 && header->number < shape.period() &&
           check == message_check(word ^ check << CHECK_AT, message + HEADER_BYTES);
}

} // namespace kosc_transfer

using namespace kosc_transfer;

bool kosc_transfer_read_header(const uint8_t* message, kosc_transfer_header_t* header)
{
    message_header read;
    if (message == nullptr || !read_message(message, &read)) {
        return false;
    }
    if (header != nullptr) {
        const layout shape = layout_of(read.size_code);
        *header = {read.id, shape.needed, read.number, shape.period()};
    }
    return true;
}

uint32_t kosc_transfer_round(uint32_t needed)
{
    constexpr uint32_t SPARE = 4; // so that short transfers too survive one message in five lost
    return static_cast<uint32_t>(std::min<uint64_t>(uint64_t{needed} + (uint64_t{needed} + 1) / 2 + SPARE, UINT32_MAX));
}
