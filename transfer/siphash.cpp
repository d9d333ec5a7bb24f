#include "siphash.h"

#include "little_endian.h"

namespace kosc_transfer {
namespace {

constexpr size_t WORD_BYTES = 8;
constexpr int COMPRESSION_ROUNDS = 2;
constexpr int FINAL_ROUNDS = 4;

uint64_t rotate(uint64_t x, int bits) { return (x << bits) | (x >> (64 - bits)); }

struct state {
    uint64_t v0, v1, v2, v3;

    void rounds(int count)
    {
        for (int i = 0; i < count; ++i) {
            v0 += v1;
            v1 = rotate(v1, 13) ^ v0;
            v0 = rotate(v0, 32);
            v2 += v3;
            v3 = rotate(v3, 16) ^ v2;
            v0 += v3;
            v3 = rotate(v3, 21) ^ v0;
            v2 += v1;
            v1 = rotate(v1, 17) ^ v2;
            v2 = rotate(v2, 32);
        }
    }

    void take(uint64_t word)
    {
        v3 ^= word;
        rounds(COMPRESSION_ROUNDS);
        v0 ^= word;
    }
};

} // namespace

uint64_t siphash(uint64_t key0, uint64_t key1, const uint8_t* data, size_t len)
{
    // "somepseudorandomlygeneratedbytes" in the four words.
    state s{key0 ^ 0x736f6d6570736575, key1 ^ 0x646f72616e646f6d, key0 ^ 0x6c7967656e657261, key1 ^ 0x7465646279746573};
    const size_t whole = len / WORD_BYTES * WORD_BYTES;
    for (size_t i = 0; i < whole; i += WORD_BYTES) {
        s.take(load_le(data + i, WORD_BYTES));
    }
    s.take(load_le(data + whole, len - whole) | uint64_t{len} << 56);
    s.v2 ^= 0xFF;
    s.rounds(FINAL_ROUNDS);
    return s.v0 ^ s.v1 ^ s.v2 ^ s.v3;
}

} // namespace kosc_transfer
