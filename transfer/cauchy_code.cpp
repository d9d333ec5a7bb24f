#include "cauchy_code.h"

#include <utility>

#include "memory.h"

namespace kosc_transfer {
namespace {

constexpr uint32_t WINDOW_BITS = 4;
constexpr uint32_t WINDOW_VALUES = 1 << WINDOW_BITS;
constexpr uint32_t WINDOWS = FIELD_BITS / WINDOW_BITS;

// Moves the source symbols to the front; their number.
uint32_t put_sources_first(uint32_t n, uint16_t* places, symbol* symbols)
{
    uint32_t front = 0;
    for (uint32_t i = 0; i < n; ++i) {
        if (places[i] < n) {
            std::swap(places[i], places[front]);
            std::swap(symbols[i], symbols[front]);
            ++front;
        }
    }
    return front;
}

// The product of point + over[i] divided by that of point + under[i], of which point itself is left out.
uint32_t quotient(const field& f, uint32_t point, const uint16_t* over, const uint16_t* under, uint32_t count)
{
    uint32_t plus = 0; // below 2^32: at most 2^16 logarithms below 2^16
    uint32_t minus = 0;
    for (uint32_t i = 0; i < count; ++i) {
        plus += f.log[point ^ over[i]];
        minus += under[i] != point ? f.log[point ^ under[i]] : 0;
    }
    return f.exp[(plus % FIELD_ORDER + FIELD_ORDER - minus % FIELD_ORDER) % FIELD_ORDER];
}

// The places below n that are not among the first `count`, in order. sources marks what is there by its first word.
void list_missing(uint32_t n, const uint16_t* places, uint32_t count, symbol* sources, uint16_t* missing)
{
    for (uint32_t i = 0; i < n; ++i) {
        sources[i].words[0] = 0;
    }
    for (uint32_t i = 0; i < count; ++i) {
        sources[places[i]].words[0] = 1;
    }
    for (uint32_t i = 0; i < n; ++i) {
        if (sources[i].words[0] == 0) {
            *missing++ = static_cast<uint16_t>(i);
        }
    }
}

} // namespace

// Multiplies by sorting: each symbol is added to one of sixteen sums for each four bits of its factor, and in the end
// the sums are put together bit by bit, so that 128 additions and 16 shifts serve all symbols.
symbol cauchy_sum(const field& f, uint32_t point, const uint16_t* points, const symbol* symbols, uint32_t count)
{
    symbol sums[WINDOWS][WINDOW_VALUES] = {};
    for (uint32_t i = 0; i < count; ++i) {
        const uint32_t factor = f.inverse(point ^ points[i]);
        for (uint32_t w = 0; w < WINDOWS; ++w) {
            sums[w][factor >> WINDOW_BITS * w & (WINDOW_VALUES - 1)].add(symbols[i]);
        }
    }
    symbol total{};
    for (uint32_t bit = FIELD_BITS; bit-- > 0;) {
        total.times_alpha();
        for (uint32_t value = 0; value < WINDOW_VALUES; ++value) {
            if ((value >> bit % WINDOW_BITS & 1) != 0) {
                total.add(sums[bit / WINDOW_BITS][value]);
            }
        }
    }
    return total;
}

bool decode_block(const field& f, uint32_t n, uint16_t* places, symbol* symbols, symbol* sources)
{
    const uint32_t known = put_sources_first(n, places, symbols);
    const uint32_t lost = n - known;
    const block_ptr<uint16_t> missing = alloc_block<uint16_t>(lost);
    if (!missing) {
        return false;
    }
    list_missing(n, places, known, sources, missing.get());
    const uint16_t* const repair_places = places + known;
    symbol* const repair = symbols + known;
    for (uint32_t i = 0; i < lost; ++i) { // what the missing symbols alone contribute, times its factor of the inverse
        repair[i].add(cauchy_sum(f, repair_places[i], places, symbols, known));
        repair[i] = multiply(quotient(f, repair_places[i], missing.get(), repair_places, lost), repair[i]);
    }
    for (uint32_t j = 0; j < lost; ++j) {
        const uint32_t factor = quotient(f, missing[j], repair_places, missing.get(), lost);
        sources[missing[j]] = multiply(factor, cauchy_sum(f, missing[j], repair_places, repair, lost));
    }
    for (uint32_t i = 0; i < known; ++i) {
        sources[places[i]] = symbols[i];
    }
    return true;
}

} // namespace kosc_transfer
