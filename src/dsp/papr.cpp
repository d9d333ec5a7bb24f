#include "kosc/papr.h"

#include <cmath>

#include "kosc/fft.h"
#include "log/log_macros.h"
#include "math/complex_ops.h"
#include "math/constants.h"
#include "platform/owned.h"

using namespace kosc;

namespace {

constexpr double HALF_TURN_DEGREES = 180.0;
// Line numbers under which hosts know the two messages of the DFT spreading.
constexpr int SPREAD_FAILED_LINE = 19;
constexpr int DESPREAD_FAILED_LINE = 39;

using pattern_ptr = owned<phase_pattern, free_phase_pattern>;

// Rotates value i by factor i modulo the pattern's length, which must divide the number of values.
bool rotate(double* data, uint32_t n, const double* factors, uint32_t factor_count)
{
    if (data == nullptr || factors == nullptr || n == 0 || factor_count == 0 || n % factor_count != 0) {
        return false;
    }
    for (uint32_t first = 0; first < n; first += factor_count) {
        for (uint32_t i = 0; i < factor_count; ++i) {
            store(data, first + i, load(data, first + i) * load(factors, i));
        }
    }
    return true;
}

} // namespace

phase_pattern* calc_phase_pattern(const double* angles, uint32_t count)
{
    if (angles == nullptr || count == 0) {
        return nullptr;
    }
    pattern_ptr pattern{alloc_record<phase_pattern>()};
    if (!pattern) {
        return nullptr;
    }
    *pattern = {alloc_zeroed<double>(uint64_t{2} * count), count, alloc_zeroed<double>(uint64_t{2} * count), count};
    if (pattern->shift_factors == nullptr || pattern->restore_factors == nullptr) {
        return nullptr;
    }
    for (uint32_t k = 0; k < count; ++k) {
        const double cs = std::cos(angles[k]);
        const double sn = std::sin(angles[k]);
        store(pattern->shift_factors, k, {cs, sn});
        store(pattern->restore_factors, k, {cs, -sn});
    }
    return pattern.release();
}

void free_phase_pattern(phase_pattern* pattern)
{
    if (pattern != nullptr) {
        std::free(pattern->shift_factors);
        std::free(pattern->restore_factors);
        std::free(pattern);
    }
}

bool phase_shift(double* data, uint32_t n, const phase_pattern* pattern)
{
    return pattern != nullptr && rotate(data, n, pattern->shift_factors, pattern->shift_count);
}

bool phase_restore(double* data, uint32_t n, const phase_pattern* pattern)
{
    return pattern != nullptr && rotate(data, n, pattern->restore_factors, pattern->restore_count);
}

void angle_to_radian(const double* degrees, double* radians, uint32_t count)
{
    if (degrees == nullptr || radians == nullptr) {
        return;
    }
    for (uint32_t k = 0; k < count; ++k) {
        radians[k] = degrees[k] / HALF_TURN_DEGREES * PI;
    }
}

bool dft_spread_mod(double* data, uint32_t n)
{
    if (!kom_fft_complex_radix2_forward(data, 1, n)) {
        if (log_level != 0) {
            log_msg(KOSC_LEVEL_ERROR, SPREAD_FAILED_LINE, "Dft spread mod: fft failed");
        }
        return false;
    }
    const double r = std::sqrt(static_cast<double>(n));
    for (size_t i = 0; i < size_t{2} * n; ++i) {
        data[i] /= r;
    }
    return true;
}

bool dft_spread_demod(double* data, uint32_t n)
{
    if (!kom_fft_complex_radix2_inverse(data, 1, n)) {
        if (log_level != 0) {
            log_msg(KOSC_LEVEL_ERROR, DESPREAD_FAILED_LINE, "Dft spread demod: ifft failed");
        }
        return false;
    }
    const double r = std::sqrt(static_cast<double>(n));
    for (size_t i = 0; i < size_t{2} * n; ++i) {
        data[i] *= r;
    }
    return true;
}
