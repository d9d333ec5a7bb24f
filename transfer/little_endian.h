// Numbers as bytes, lowest first whatever the processor.
#ifndef KOSC_TRANSFER_LITTLE_ENDIAN_H
#define KOSC_TRANSFER_LITTLE_ENDIAN_H

#include <cstddef>
#include <cstdint>

namespace kosc_transfer {

// `count` bytes, at most 8.
inline uint64_t load_le(const uint8_t* from, size_t count)
{
    uint64_t value = 0;
    for (size_t i = 0; i < count; ++i) {
        value |= uint64_t{from[i]} << 8 * i;
    }
    return value;
}

inline void store_le(uint8_t* to, uint64_t value, size_t count)
{
    for (size_t i = 0; i < count; ++i) {
        to[i] = static_cast<uint8_t>(value >> 8 * i);
    }
}

} // namespace kosc_transfer

#endif
