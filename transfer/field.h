// The field of 2^16 elements, and symbols of ten of them.
#ifndef KOSC_TRANSFER_FIELD_H
#define KOSC_TRANSFER_FIELD_H

#include <cstdint>

namespace kosc_transfer {

constexpr uint32_t FIELD_SIZE = 65536;
constexpr uint32_t FIELD_ORDER = FIELD_SIZE - 1; // of the multiplicative group
constexpr uint32_t FIELD_BITS = 16;
constexpr uint32_t SYMBOL_BYTES = 20;
constexpr uint32_t SYMBOL_WORDS = 3;

// Twenty bytes as ten elements, lowest byte first, four to a word; the last word is half empty.
struct symbol {
    uint64_t words[SYMBOL_WORDS];

    void add(const symbol& other)
    {
        for (uint32_t i = 0; i < SYMBOL_WORDS; ++i) {
            words[i] ^= other.words[i];
        }
    }

    void times_alpha();
};

symbol load_symbol(const uint8_t* bytes);
void store_symbol(uint8_t* bytes, const symbol& s);

// Logarithms to the base alpha, a root of x^16 + x^12 + x^3 + x + 1, which generates the field. log[0] is not used.
struct field {
    uint16_t log[FIELD_SIZE];
    uint16_t exp[FIELD_SIZE];

    field();

    uint32_t inverse(uint32_t element) const { return exp[FIELD_ORDER - log[element]]; }
};

// factor times s.
symbol multiply(uint32_t factor, const symbol& s);

} // namespace kosc_transfer

#endif
