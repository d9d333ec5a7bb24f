// A frame's samples as a complex signal of the modem's band alone, and where known patterns lie in it.
#ifndef KOSC_INSPECT_FRAME_BAND_H
#define KOSC_INSPECT_FRAME_BAND_H

#include <vector>

#include "kosc/context.h"
#include "transform.h"

namespace kosc_inspect {

constexpr uint32_t BAND_SAMPLES = 16384; // more than a frame

using band_signal = kosc_link::complex_signal;
using kosc_link::transform;

// The analytic signal of `count` samples between the lowest and the highest subcarrier; BAND_SAMPLES long.
band_signal band_of(const ofdm_cfg& ofdm, const double* samples, size_t count);

// The subcarriers in the FFT window that begins with that sample.
band_signal subcarriers_of(const ofdm_cfg& ofdm, const double* window);

// Energy of `count` samples from `start` on.
double energy_of(const band_signal& signal, size_t start, size_t count);

// Share of the energy at each place that a pattern of so many samples explains there: magnitudes from 0 to 1.
std::vector<double> likeness(const band_signal& signal, const band_signal& pattern, size_t length);

// The same of signal and its copy `lag` samples later, within `length` samples from `start` on; the argument is by how
// much the copy is turned.
std::complex<double> self_likeness(const band_signal& signal, size_t start, size_t length, size_t lag);

} // namespace kosc_inspect

#endif
