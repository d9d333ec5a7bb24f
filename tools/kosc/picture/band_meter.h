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
    // last peak that stood out of it; of these what fits into so many columns.
    std::string line(size_t columns) const;

private:
    void measure();

    std::vector<double> window_; // samples that are not measured yet
    spectrum_bins bins_;
    double level_ = 0.0;
    double floor_ = 0.0; // 0: nothing measured
    double peak_ = 0.0;  // 0: none yet
    double seconds_since_peak_ = 0.0;
};

// The meter on a terminal, below what is printed there.
class meter_line {
public:
    // Shows nothing unless `wanted` and `descriptor` is a terminal.
    meter_line(int descriptor, bool wanted);
    ~meter_line() { clear(); }
    meter_line(const meter_line&) = delete;
    meter_line& operator=(const meter_line&) = delete;

    bool enabled() const { return descriptor_ >= 0; }
    void hear(const std::vector<int16_t>& pcm);
    // Takes the line away, so that other output does not run into it; hear() shows it again.
    void clear();

private:
    int descriptor_; // -1: none
    bool shown_ = false;
    band_meter meter_;
};

#endif
