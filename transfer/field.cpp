#include "field.h"

#include "little_endian.h"

namespace kosc_transfer {
namespace {

constexpr uint32_t POLYNOMIAL = 0x1100B;
constexpr uint64_t REDUCTION = POLYNOMIAL & 0xFFFF;
constexpr uint64_t TOP_BITS = 0x8000800080008000;
constexpr uint32_t WORD_BYTES = 8;

} // namespace

void symbol::times_alpha()
{
    for (uint64_t& word : words) {
        const uint64_t carried = (word & TOP_BITS) >> (FIELD_BITS - 1);
        word = ((word & ~TOP_BITS) << 1) ^ carried * REDUCTION; // four products below 2^16, none of which meet
    }
}

symbol load_symbol(const uint8_t* bytes)
{
    return {{load_le(bytes, WORD_BYTES), load_le(bytes + WORD_BYTES, WORD_BYTES),
             load_le(bytes + 2 * WORD_BYTES, SYMBOL_BYTES - 2 * WORD_BYTES)}};
}

void store_symbol(uint8_t* bytes, const symbol& s)
{
    store_le(bytes, s.words[0], WORD_BYTES);
    store_le(bytes + WORD_BYTES, s.words[1], WORD_BYTES);
    store_le(bytes + 2 * WORD_BYTES, s.words[2], SYMBOL_BYTES - 2 * WORD_BYTES);
}

field::field() : log(), exp()
{
    uint32_t power = 1;
    for (uint32_t i = 0; i < FIELD_ORDER; ++i) {
        exp[i] = static_cast<uint16_t>(power);
        log[power] = static_cast<uint16_t>(i);
        power = power << 1 ^ (power >> (FIELD_BITS - 1)) * POLYNOMIAL;
    }
    exp[FIELD_ORDER] = 1;
}

symbol multiply(uint32_t factor, const symbol& s)
{
    symbol product{};
    for (uint32_t bit = FIELD_BITS; bit-- > 0;) {
        product.times_alpha();
        if ((factor >> bit & 1) != 0) {
            product.add(s);
        }
    }
    return product;
}

} // namespace kosc_transfer
