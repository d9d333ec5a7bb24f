#include "kosc/filter.h"

#include <cmath>

#include "math/constants.h"

void blackman(uint32_t n, double* out)
{
    if (n == 1) {
        out[0] = 1.0;
        return;
    }
    for (uint32_t i = 0; i < n; ++i) {
        const double turn = 2.0 * kosc::PI * i / (n - 1);
        const double two_turns = 4.0 * kosc::PI * i / (n - 1);
        out[i] = (0.42 - 0.5 * std::cos(turn)) + 0.08 * std::cos(two_turns);
    }
}
