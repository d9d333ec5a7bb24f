// Inside of band_inverse.h. What runs is compiled for registers of 16 bytes and, where processors may have them, for
// those of 32; the two give the same numbers.
#ifndef KOSC_DSP_BAND_INVERSE_ENGINE_H
#define KOSC_DSP_BAND_INVERSE_ENGINE_H

#include <cstdint>
#include <type_traits>

#include "dsp/band_inverse.h"
#include "kosc/vector.h"

namespace kosc {

constexpr uint32_t BAND_POINTS = 64; // of each transform

// The number of lanes of symbols of 1024 samples, for which loops have a known length.
using usual_lanes = std::integral_constant<uint32_t, 8>;

// band_inverse_run() in registers that hold 2 lanes, and in those that hold 4, which serve the usual number of lanes.
void run_band_by_two(const band_inverse* e, const double* values, double* work, double* samples);
void run_band_by_four(const band_inverse* e, const double* values, double* work, double* samples);

} // namespace kosc

struct band_inverse {
    uint32_t lanes; // R
    decltype(&kosc::run_band_by_two) run;
    // The subcarrier whose bin lies in each row, in bit-reversed order, and the one whose mirror does; rows without
    // one have factors of 0.
    uint32_t direct[kosc::BAND_POINTS];
    uint32_t mirrored[kosc::BAND_POINTS];
    kom_complex turn[kosc::BAND_POINTS]; // exp(i*2*pi*k/BAND_POINTS)
    // For each row `lanes` factors, real parts apart from imaginary ones; the mirror's multiply the conjugate.
    double* re;
    double* im;
    double* mirror_re;
    double* mirror_im;
};

#endif
