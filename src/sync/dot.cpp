#include "sync/dot.h"

#include "math/simd.h"
#include "platform/unroll.h"

namespace kosc {

// Partial sums side by side, so that the additions need not wait for each other.
double dot(const double* a, const double* b, uint32_t count)
{
    constexpr uint32_t REGISTERS = 4;
    simd sums[REGISTERS] = {};
    const uint32_t whole = count - count % (REGISTERS * SIMD_LANES);
    for (uint32_t i = 0; i < whole; i += REGISTERS * SIMD_LANES) {
        KOSC_UNROLL
        for (uint32_t k = 0; k < REGISTERS; ++k) {
            sums[k] += load_simd(a + i + SIMD_LANES * k) * load_simd(b + i + SIMD_LANES * k);
        }
    }
    const simd sum = (sums[0] + sums[1]) + (sums[2] + sums[3]);
    double total = sum[0] + sum[1];
    for (uint32_t i = whole; i < count; ++i) {
        total += a[i] * b[i];
    }
    return total;
}

} // namespace kosc
