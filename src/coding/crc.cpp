#include "kosc/crc.h"

#include <climits>

#include "coding/crc_room.h"
#include "log/log_macros.h"
#include "math/vector_family.h"

using namespace kosc;

namespace {

constexpr uint16_t REVERSED_POLYNOMIAL = 0xA001;
constexpr uint16_t INITIAL_REGISTER = 0xFFFF;

} // namespace

const uint16_t POLY = REVERSED_POLYNOMIAL;

uint16_t crc_update(uint16_t crc, const uint8_t* data, uint32_t len)
{
    uint32_t shift_register = crc;
    for (uint32_t i = 0; i < len; ++i) {
        shift_register ^= data[i];
        for (int bit = 0; bit < CHAR_BIT; ++bit) {
            const uint32_t feedback = (shift_register & 1) != 0 ? REVERSED_POLYNOMIAL : 0;
            shift_register = (shift_register >> 1) ^ feedback;
        }
    }
    return static_cast<uint16_t>(shift_register);
}

bool crc16(uint8_t out[2], const uint8_t* data, uint32_t len)
{
    if (out == nullptr || data == nullptr) {
        return false;
    }
    const uint16_t crc = crc_update(INITIAL_REGISTER, data, len);
    out[0] = static_cast<uint8_t>(crc & 0xFF);
    out[1] = static_cast<uint8_t>(crc >> CHAR_BIT);
    return true;
}

uint32_t calculate_crc(const uint8_t* data, uint32_t data_len, const crc_cfg* cfg, uint8_t* crc_out)
{
    if (cfg == nullptr || crc_out == nullptr || cfg->put_crc > KOSC_CRC_AT_LAST) {
        return 0;
    }
    const uint32_t crc_bytes = cfg->bits / CHAR_BIT;
    const uint32_t part_len = cfg->group != 0 ? data_len / cfg->group : 0;
    const uint32_t part_stride = cfg->put_crc == KOSC_CRC_AT_LAST ? part_len : part_len + crc_bytes;
    for (uint32_t g = 0; g < cfg->group; ++g) {
        uint8_t crc[CRC16_BYTES];
        const uint8_t* const part = data != nullptr ? data + size_t{g} * part_stride : nullptr;
        KOSC_RETURN_IF(!crc16(crc, part, part_len), 0, "Calc crc failed.");
        crc_out[size_t{CRC16_BYTES} * g] = crc[1]; // high byte first on the air
        crc_out[size_t{CRC16_BYTES} * g + 1] = crc[0];
    }
    return cfg->group * crc_bytes;
}

bool byte2bin(uint8_t* bits, const uint8_t* bytes, uint32_t byte_num)
{
    if (bits == nullptr || bytes == nullptr || byte_num == 0) {
        return false;
    }
    for (size_t i = 0; i < byte_num; ++i) {
        for (size_t j = 0; j < CHAR_BIT; ++j) {
            bits[CHAR_BIT * i + j] = (bytes[i] >> (CHAR_BIT - 1 - j)) & 1;
        }
    }
    return true;
}

bool bin2byte(uint8_t* bytes, const uint8_t* bits, uint32_t bit_num)
{
    if (bytes == nullptr || bits == nullptr || bit_num == 0) {
        return false;
    }
    for (size_t i = 0; i < bit_num / CHAR_BIT; ++i) {
        uint32_t sum = 0; // a sum, not an OR: other values than 0 and 1 wrap modulo 256
        for (size_t j = 0; j < CHAR_BIT; ++j) {
            sum += static_cast<uint32_t>(bits[CHAR_BIT * i + j]) << (CHAR_BIT - 1 - j);
        }
        bytes[i] = static_cast<uint8_t>(sum);
    }
    return true;
}

kom_vector_uint8* vector_byte_to_binary(const kom_vector_uint8* bytes)
{
    const uint32_t size = kom_vector_uint8_size(bytes);
    if (bytes == nullptr || size > UINT32_MAX / CHAR_BIT) {
        return nullptr;
    }
    kom_vector_uint8* const bits = kom_vector_uint8_alloc(size * CHAR_BIT);
    if (bits != nullptr) {
        byte2bin(bits->data, bytes->data, size);
    }
    return bits;
}

kom_vector_uint8* vector_binary_to_byte(const kom_vector_uint8* bits)
{
    if (bits == nullptr) {
        return nullptr;
    }
    kom_vector_uint8* const bytes = kom_vector_uint8_alloc(bits->size / CHAR_BIT);
    if (bytes != nullptr) {
        bin2byte(bytes->data, bits->data, bits->size);
    }
    return bytes;
}
