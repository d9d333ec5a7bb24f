/**
 * @file
 * CRC-16 and the one-bit-a-byte form that the channel coding works on.
 */
#ifndef KOSC_CRC_H
#define KOSC_CRC_H

#include <stdbool.h>
#include <stdint.h>

#include "kosc/config.h"
#include "kosc/export.h"
#include "kosc/vector.h"

#ifdef __cplusplus
extern "C" {
#endif

/** The CRC polynomial 0x8005 with its bits reversed: 0xA001. */
extern KOSC_API const uint16_t POLY;

/** Feeds `len` bytes into the CRC register `crc` and returns the new register. */
KOSC_API uint16_t crc_update(uint16_t crc, const uint8_t* data, uint32_t len);

/**
 * CRC-16/MODBUS (polynomial 0x8005, reflected, initial value 0xFFFF, no final XOR) of `len` bytes, low byte first.
 *
 * @param out   two bytes
 * @param data  `len` bytes; 0 of them give 0xFFFF
 * @param len   bytes of `data`
 * @return false when a pointer is null
 */
KOSC_API bool crc16(uint8_t out[2], const uint8_t* data, uint32_t len);

/**
 * One CRC-16 for each of `cfg->group` equal parts of a message, high byte first.
 *
 * @param data      the parts, back to back (AT_LAST) or each followed by its CRC (AFTER_EVERY_PART)
 * @param data_len  bytes of the parts alone
 * @param cfg       group, bits and placement
 * @param crc_out   receives 2 * group bytes, whatever `bits` says
 * @return group * (bits / 8); 0 when `cfg` or `crc_out` is null or the placement is unknown (no message), or `data`
 *         is null (ERROR "Calc crc failed.")
 */
KOSC_API uint32_t calculate_crc(const uint8_t* data, uint32_t data_len, const crc_cfg* cfg, uint8_t* crc_out);

/** Expands `byte_num` bytes to 8 bits each, most significant first; false when a pointer is null or there are none. */
KOSC_API bool byte2bin(uint8_t* bits, const uint8_t* bytes, uint32_t byte_num);

/** Packs bit_num / 8 bytes, most significant bit first; false when a pointer is null or `bit_num` is 0. */
KOSC_API bool bin2byte(uint8_t* bytes, const uint8_t* bits, uint32_t bit_num);

/** The bits of `bytes` (stride 1) as a new owning vector; null when memory is short or they are too many. */
KOSC_API kom_vector_uint8* vector_byte_to_binary(const kom_vector_uint8* bytes);

/** size / 8 bytes packed from `bits` (stride 1) as a new owning vector; null when memory is short. */
KOSC_API kom_vector_uint8* vector_binary_to_byte(const kom_vector_uint8* bits);

#ifdef __cplusplus
}
#endif

#endif
