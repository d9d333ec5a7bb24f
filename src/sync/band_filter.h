// The receiver's filter over a run of samples, with the energy that the correlation is normalised by.
#ifndef KOSC_SYNC_BAND_FILTER_H
#define KOSC_SYNC_BAND_FILTER_H

#include <cstddef>
#include <cstdint>

#include "kosc/filter.h"

namespace kosc {

// What digital silence leaves in the filter's state falls without end, down to subnormal numbers, on which many
// processors calculate a hundred times slower. So the state is checked whenever this many more zeros have come in a
// row, in which no filter loses a hundred digits: those of narrow bands have not settled for seconds.
constexpr uint32_t SILENCE_STEP = 256;

// Zeroes the delay line if what is left in it is below 1e-200: nothing that is computed from it and a sample, nor any
// square of it, shows the difference.
void flush_silence(butterworth_bandpass* filter);

// Counts consecutive zero samples in `zero_run`; true when the filter's state should be checked.
inline bool count_zero(bool is_zero, uint32_t* zero_run)
{
    *zero_run = is_zero ? *zero_run + 1 : 0;
    return is_zero && *zero_run % SILENCE_STEP == 0;
}

// Interleaved 16-bit samples of one track.
struct pcm_run {
    const int16_t* samples;
    size_t stride; // distance of neighbours of one track
    uint32_t count;
};

// Where a run goes: raw samples, filtered samples, and energies. `leaving[i]` is the first filtered sample of the
// window that raw sample i completes; it may lie within `filtered`.
struct band_histories {
    double* raw;
    double* filtered;
    double* energy;
    const double* leaving;
};

// Whether filter_run() can take this filter: order 5, with every other numerator tap zero.
bool suits_filter_run(const butterworth_bandpass* filter);

// The same bits as butterworth_bandpass_filter() sample by sample, and energy[i] = filtered[i]^2 + energy[i - 1] -
// leaving[i]^2, from `energy_before` on. `zero_run` is kept up to date.
void filter_run(butterworth_bandpass* filter, const pcm_run& run, double energy_before, const band_histories& out,
                uint32_t* zero_run);

} // namespace kosc

#endif
