// From products with the filtered pilot to correlation values.
#ifndef KOSC_SYNC_NORMALISE_H
#define KOSC_SYNC_NORMALISE_H

#include <cstdint>

namespace kosc {

// values[i] := |values[i]| / sqrt(energies[i]); 0 where the energy is below 1, which counts as silence. In registers of
// 16 bytes, and in those of 32, which give the same numbers.
void normalise_narrow(double* values, const double* energies, uint32_t count);
void normalise_wide(double* values, const double* energies, uint32_t count);

// The same in the widest registers that this processor has.
void normalise(double* values, const double* energies, uint32_t count);

} // namespace kosc

#endif
