// SipHash-2-4 under a fixed, public key: a checksum whose 64 bits spread evenly, not an authenticator.
#ifndef KOSC_TRANSFER_SIPHASH_H
#define KOSC_TRANSFER_SIPHASH_H

#include <cstddef>
#include <cstdint>

namespace kosc_transfer {

// Source: Aumasson and Bernstein 2012, "SipHash: a fast short-input PRF".
uint64_t siphash(uint64_t key0, uint64_t key1, const uint8_t* data, size_t len);

} // namespace kosc_transfer

#endif
