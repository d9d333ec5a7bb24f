#include "sync/normalise.h"

#include <cmath>

#include "math/simd.h"

using namespace kosc;

namespace {

// Below this energy a window counts as silence, and its correlation as zero.
constexpr double MIN_ENERGY = 1.0;

// corr = |product| / sqrt(energy), the normalised cross-correlation. Written without branches for the vectoriser, and
// without the standard library's inline functions: this file is compiled for AVX2 too, and the linker could keep that
// copy of such a function for all files.
void normalise_loop(double* values, const double* energies, uint32_t count)
{
    for (uint32_t i = 0; i < count; ++i) {
        const double energy = energies[i] < MIN_ENERGY ? MIN_ENERGY : energies[i];
        const double value = std::fabs(values[i]) / std::sqrt(energy);
        values[i] = energies[i] >= MIN_ENERGY ? value : 0.0;
    }
}

} // namespace

#if KOSC_SIMD_BYTES == 16
void kosc::normalise_narrow(double* values, const double* energies, uint32_t count)
{
    normalise_loop(values, energies, count);
}

void kosc::normalise(double* values, const double* energies, uint32_t count)
{
#ifdef KOSC_HAS_AVX2
    if (__builtin_cpu_supports("avx2")) {
        normalise_wide(values, energies, count);
        return;
    }
#endif
    normalise_narrow(values, energies, count);
}
#else
void kosc::normalise_wide(double* values, const double* energies, uint32_t count)
{
    normalise_loop(values, energies, count);
}
#endif
