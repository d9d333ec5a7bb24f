#include "kosc/block_code.h"

#include "coding/block_code_tables.h"
#include "math/vector_family.h"

using namespace kosc;

namespace {

constexpr uint32_t MAX_PARITY = 31;

// Whether `in` is whole blocks of `from` elements, and the same blocks at `to` elements each can still be counted.
bool converts(const kom_vector_uint8* in, uint32_t from, uint32_t to)
{
    return in != nullptr && from != 0 && to != 0 && in->size % from == 0 &&
           uint64_t{in->size / from} * to <= UINT32_MAX;
}

// Syndrome of the code word that starts at element `first`, its bit 0 most significant.
uint32_t syndrome(const kom_vector_uint8* in, uint32_t first, const uint8_t* check, uint32_t n, uint32_t parity)
{
    uint32_t bits = 0;
    for (uint32_t j = 0; j < parity; ++j) {
        uint32_t sum = 0;
        for (uint32_t i = 0; i < n; ++i) {
            sum ^= kom_vector_uint8_get(in, first + i) & check[size_t{i} * parity + j];
        }
        bits = bits << 1 | (sum & 1);
    }
    return bits;
}

} // namespace

kom_vector_uint8* encode82(const kom_vector_uint8* bits)
{
    return linear_encode(bits, generator_table[0], CODE_N, CODE_K);
}

kom_vector_uint8* decode82(const kom_vector_uint8* coded)
{
    return syndrome_decode(coded, coset_leader_table[0], parity_check_table[0], CODE_N, CODE_K);
}

kom_vector_uint8* linear_encode(const kom_vector_uint8* in, const uint8_t* gen, uint32_t n, uint32_t k)
{
    if (gen == nullptr || !converts(in, k, n)) {
        return nullptr;
    }
    const uint32_t size = in->size / k * n;
    kom_vector_uint8* const out = kom_vector_uint8_alloc(size);
    for (uint32_t position = 0; out != nullptr && position < size; ++position) {
        const uint32_t block = position / n;
        const uint32_t j = position % n;
        uint32_t sum = 0;
        for (uint32_t i = 0; i < k; ++i) {
            sum ^= kom_vector_uint8_get(in, block * k + i) * uint32_t{gen[size_t{i} * n + j]};
        }
        out->data[position] = static_cast<uint8_t>(sum);
    }
    return out;
}

kom_vector_uint8* syndrome_decode(const kom_vector_uint8* in, const uint8_t* leaders, const uint8_t* check, uint32_t n,
                                  uint32_t k)
{
    const uint32_t parity = n > k ? n - k : 0;
    if (leaders == nullptr || check == nullptr || parity == 0 || parity > MAX_PARITY || !converts(in, n, k)) {
        return nullptr;
    }
    kom_vector_uint8* const out = kom_vector_uint8_alloc(in->size / n * k);
    for (uint32_t block = 0; out != nullptr && block < in->size / n; ++block) {
        const size_t row = size_t{syndrome(in, block * n, check, n, parity)} * n;
        for (uint32_t t = 0; t < k; ++t) {
            out->data[block * k + t] = kom_vector_uint8_get(in, block * n + parity + t) ^ leaders[row + parity + t];
        }
    }
    return out;
}
