#include "sync/band_filter.h"

#include <algorithm>
#include <cmath>

namespace kosc {
namespace {

constexpr uint32_t ORDER = 5;
constexpr uint32_t DELAYS = 2 * ORDER;
constexpr uint32_t TAPS = DELAYS + 1;
constexpr double NEGLIGIBLE = 1e-200;

// The delay line of filter() in registers: w[DELAYS - k] is the value k samples back.
struct delay_line {
    double w[DELAYS];

    // filter() without the numerator taps that are zero; all sums are in its order.
    double step(const double* a, const double* b, double x)
    {
        double v = a[0] * x;
        for (uint32_t k = 1; k < TAPS; ++k) {
            v -= a[k] * w[DELAYS - k];
        }
        double y = 0.0 + b[0] * v;
        for (uint32_t k = 2; k < TAPS; k += 2) {
            y += b[k] * w[DELAYS - k];
        }
        for (uint32_t i = 0; i + 1 < DELAYS; ++i) {
            w[i] = w[i + 1];
        }
        w[DELAYS - 1] = v;
        return y;
    }
};

} // namespace

void flush_silence(butterworth_bandpass* filter)
{
    const bool negligible =
        std::all_of(filter->w, filter->w + filter->nw, [](double w) { return std::fabs(w) < NEGLIGIBLE; });
    if (negligible) {
        butterworth_bandpass_reset_buffer(filter);
    }
}

bool suits_filter_run(const butterworth_bandpass* filter)
{
    bool odd_taps_are_zero = filter->nb == TAPS && filter->na == TAPS;
    for (uint32_t k = 1; odd_taps_are_zero && k < TAPS; k += 2) {
        odd_taps_are_zero = filter->b[k] == 0.0;
    }
    return odd_taps_are_zero;
}

void filter_run(butterworth_bandpass* filter, const pcm_run& run, double energy_before, const band_histories& out,
                uint32_t* zero_run)
{
    double a[TAPS];
    double b[TAPS];
    delay_line delays;
    std::copy_n(filter->a, TAPS, a);
    std::copy_n(filter->b, TAPS, b);
    std::copy_n(filter->w, DELAYS, delays.w);
    double energy = energy_before;
    uint32_t zeros = *zero_run;
    for (uint32_t i = 0; i < run.count; ++i) {
        const int16_t sample = run.samples[i * run.stride];
        const double x = sample;
        const double y = delays.step(a, b, x);
        out.raw[i] = x;
        out.filtered[i] = y;
        const double old = out.leaving[i];
        energy = y * y + energy - old * old;
        out.energy[i] = energy;
        if (count_zero(sample == 0, &zeros)) {
            std::copy_n(delays.w, DELAYS, filter->w);
            flush_silence(filter);
            std::copy_n(filter->w, DELAYS, delays.w);
        }
    }
    std::copy_n(delays.w, DELAYS, filter->w);
    *zero_run = zeros;
}

} // namespace kosc
