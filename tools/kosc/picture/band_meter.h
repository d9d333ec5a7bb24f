// The bands that are listened to at a glance, in one line of standard error that is rewritten in place.
#ifndef KOSC_TOOL_BAND_METER_H
#define KOSC_TOOL_BAND_METER_H

#include <cstdint>
#include <string>
#include <vector>

#include "audio/sound_bands.h"
#include "picture/progress_bar.h"
#include "power_spectrum.h"

// Levels in dB below a full-scale sine wave, of one band.
struct level_meter {
    sound_band band;
    double level = 0.0;
    double floor = 0.0; // 0: nothing measured
    double peak = 0.0;  // 0: none yet
    double seconds_since_peak = 0.0;

    void measure(const kosc_inspect::spectrum_bins& bins);
};

class band_meter {
public:
    explicit band_meter(const band_list& bands);
    // Takes the next samples; true when there is a new line to show.
    bool process(const std::vector<int16_t>& pcm);
    // The spectrum around the bands as a row of bars, and of each the level of the last tenth of a second, of a single
    // one also the noise floor and the last peak that stood out of it; of these what fits into so many columns.
    std::string line(size_t columns) const;

private:
    std::string bars() const;

    std::vector<double> window_; // samples that are not measured yet
    kosc_inspect::spectrum_bins bins_;
    std::vector<level_meter> meters_;
};

// The meter on a terminal, below what is printed there.
class meter_line : public terminal_line {
public:
    // Shows nothing unless `wanted` and `descriptor` is a terminal.
    meter_line(int descriptor, bool wanted, const band_list& bands)
        : terminal_line(descriptor, wanted, "\r\033[J"), meter_(bands)
    {
    }

    // `instead`, where it is not empty, is shown in the meter's place; it has up to columns().
    void process(const std::vector<int16_t>& pcm, const std::string& instead = "");

private:
    band_meter meter_;
};

#endif
