#include "sync/dot.h"

#include "math/pair.h"

namespace kosc {

// Partial sums side by side, so that the additions need not wait for each other.
double dot(const double* a, const double* b, uint32_t count)
{
    constexpr uint32_t PAIRS = 4;
    pair sums[PAIRS] = {};
    const uint32_t whole = count - count % (PAIRS * PAIR);
    for (uint32_t i = 0; i < whole; i += PAIRS * PAIR) {
        for (uint32_t k = 0; k < PAIRS; ++k) {
            sums[k] += load_pair(a + i + PAIR * k) * load_pair(b + i + PAIR * k);
        }
    }
    const pair sum = (sums[0] + sums[1]) + (sums[2] + sums[3]);
    double total = sum[0] + sum[1];
    for (uint32_t i = whole; i < count; ++i) {
        total += a[i] * b[i];
    }
    return total;
}

} // namespace kosc
