#include "kosc/zadoff_chu.h"

#include <cmath>

#include "math/complex_ops.h"
#include "math/constants.h"

using namespace kosc;

void zc(int32_t root, uint32_t q, int32_t length, double* out)
{
    for (int32_t n = 0; n < length; ++n) {
        const uint32_t p = static_cast<uint32_t>(length % 2);
        const auto k = static_cast<int32_t>(static_cast<uint32_t>(n) + p + 2 * q);
        const double phase = -PI * root * n * k / length;
        store(out, static_cast<uint32_t>(n), {std::cos(phase), std::sin(phase)});
    }
}
