// Inside of pruned_ifft.h. What runs is compiled for registers of 16 bytes and, where processors may have them, for
// those of 32; the two give the same numbers.
#ifndef KOSC_DSP_PRUNED_IFFT_ENGINE_H
#define KOSC_DSP_PRUNED_IFFT_ENGINE_H

#include <cstdint>
#include <type_traits>

#include "dsp/pruned_ifft.h"
#include "kosc/vector.h"

namespace kosc {

constexpr uint32_t PRUNED_POINTS = 64; // of each transform

// The number of lanes of symbols of 1024 samples, for which loops have a known length.
using usual_lanes = std::integral_constant<uint32_t, 8>;

// pruned_ifft_run() in registers that hold 2 lanes, and in those that hold 4, which serve the usual number of lanes.
void run_pruned_ifft_by_two(const pruned_ifft* e, const double* values, double* work, double* samples);
void run_pruned_ifft_by_four(const pruned_ifft* e, const double* values, double* work, double* samples);

} // namespace kosc

struct pruned_ifft {
    uint32_t lanes; // R
    decltype(&kosc::run_pruned_ifft_by_two) run;
    // The subcarrier whose bin lies in each row, in bit-reversed order, and the one whose mirror does; rows without
    // one have factors of 0.
    uint32_t direct[kosc::PRUNED_POINTS];
    uint32_t mirrored[kosc::PRUNED_POINTS];
    kom_complex turn[kosc::PRUNED_POINTS]; // exp(i*2*pi*k/PRUNED_POINTS)
    // For each row `lanes` factors, real parts apart from imaginary ones; the mirror's multiply the conjugate.
    double* re;
    double* im;
    double* mirror_re;
    double* mirror_im;
};

#endif
