// The receiver's band-pass filter: where its band lies, and whether it settles.
#ifndef KOSC_SYNC_RECEIVE_FILTER_H
#define KOSC_SYNC_RECEIVE_FILTER_H

#include <cstdint>

#include "kosc/config.h"
#include "kosc/filter.h"

namespace kosc {

// Cut-off frequencies in hertz.
struct pass_band {
    double low;
    double high;
};

// The subcarriers in use, with a few spacings around them.
pass_band receive_band(const ofdm_cfg& ofdm, uint32_t sample_rate);

// The filter for a band; null when memory is short.
butterworth_bandpass* create_receive_filter(const pass_band& band, uint32_t sample_rate);

// Whether an impulse dies away in the filter. It does not where a cut-off lies at or beyond 0 or half the sample rate,
// or where the poles lie so close together that the rounding of the coefficients moves one out of the unit circle: then
// everything that is received drowns in the filter's own growing output. The delay line is used and left reset.
bool filter_is_stable(butterworth_bandpass* filter);

// Whether the receiver has a stable filter for these subcarriers; false also when memory is short.
bool band_is_receivable(const ofdm_cfg& ofdm, uint32_t sample_rate);

} // namespace kosc

#endif
