// The modem's band at a glance, in one line of standard error that is rewritten in place.
#ifndef KOSC_TOOL_BAND_METER_H
#define KOSC_TOOL_BAND_METER_H

#include <cstdint>
#include <string>
#include <vector>

#include "picture/spectrum.h"

// Levels in dB below a full-scale sine wave, of the band from 18 to 21 kHz.
class band_meter {
public:
    // Takes the next samples; true when there is a new line to show.
    bool hear(const std::vector<int16_t>& pcm);
    // The spectrum from 15 to 24 kHz as a row of bars, the level of the last tenth of a second, the noise floor and the
    // last peak that stood out of it.
    std::string line() const;

private:
    void measure();

    std::vector<double> window_; // samples that are not measured yet
    spectrum_bins bins_;
    double level_ = 0.0;
    double floor_ = 0.0; // 0: nothing measured
    double peak_ = 0.0;  // 0: none yet
    double seconds_since_peak_ = 0.0;
};

#endif
