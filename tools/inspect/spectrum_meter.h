// Where the energy of a recording lies, over frequency and over time.
#ifndef KOSC_INSPECT_SPECTRUM_METER_H
#define KOSC_INSPECT_SPECTRUM_METER_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "modem.h"
#include "power_spectrum.h"

namespace kosc_inspect {

// One channel's spectra, block by block.
class spectrum_meter {
public:
    // A new block begins every `hop` samples.
    spectrum_meter(double sample_rate, uint32_t hop, const sound_band& band);

    // Takes samples of -1 to 1 that lie `stride` apart.
    void process(const float* samples, size_t count, size_t stride);
    // Fills the last block up with silence.
    void finish();

    // Level in dB of the mean power between two frequencies.
    double level(double low, double high) const;
    // Each bin's level in dB, averaged in dB over the blocks that are not silent: short sounds count little.
    std::vector<double> typical_levels() const;
    // Each block's level in the modem's band, and of the room's sounds, which lie outside of it.
    const std::vector<float>& band_levels() const { return band_levels_; }
    const std::vector<float>& room_levels() const { return room_levels_; }
    // Powers of the newest block's bins, for whoever draws them.
    const spectrum_bins& newest() const { return powers_; }
    uint64_t blocks() const { return band_levels_.size(); }

private:
    void transform();

    double sample_rate_;
    uint32_t hop_;
    sound_band band_;
    std::vector<double> block_;
    spectrum_bins powers_, mean_powers_;
    std::vector<double> log_sums_; // of the bins' levels
    uint64_t sounding_blocks_ = 0;
    std::vector<float> band_levels_, room_levels_;
};

// The frequency in Hz above which a recording holds nothing but rounding noise, when the spectrum falls off a cliff
// there, in the modem's band or below: the mark of a low-pass filter, a lossy coder, or a conversion from a lower rate.
std::optional<double> empty_above(const std::vector<double>& typical_levels, double sample_rate,
                                  const sound_band& band);

// The frequency in Hz of a steady tone in the modem's band that holds most of the band's typical power.
std::optional<double> steady_tone(const std::vector<double>& typical_levels, double sample_rate,
                                  const sound_band& band);

// Whether the background is cut to nothing and comes back several times, as noise suppression and gates do.
bool is_gated(const spectrum_meter& spectrum);

// The level that a tenth of the blocks stay below.
double floor_level(const std::vector<float>& levels);

} // namespace kosc_inspect

#endif
