// Keeps of a recording what its picture shows over time.
#ifndef KOSC_INSPECT_PLOT_RECORDER_H
#define KOSC_INSPECT_PLOT_RECORDER_H

#include "inspector.h"
#include "timeline.h"

namespace kosc_inspect {

class plot_recorder {
public:
    plot_recorder(uint32_t sample_rate, uint32_t channels, const sound_band& band);

    // As those of inspector.
    void process_raw(const float* interleaved, size_t frames);
    void process(uint32_t channel, const int16_t* pcm, size_t count);

    // Spectra in dB from lowest() Hz on, and the samples at the recording's rate between columns.
    const timeline& waterfall(uint32_t channel) const { return channels_[channel].waterfall; }
    double waterfall_step(uint32_t channel) const;
    // Correlation with the synchronisation pilot, by where a frame would begin, and the modem's samples between
    // columns.
    const timeline& correlation(uint32_t channel) const { return channels_[channel].correlation; }
    double correlation_step(uint32_t channel) const;
    // The position of the first correlation column.
    double correlation_start() const { return -static_cast<double>(lead_); }

    double lowest() const { return lowest_; }

private:
    struct channel_state {
        data_container* container; // the receiver's
        spectrum_meter spectrum;
        timeline waterfall;
        timeline correlation;
        float highest;   // correlation of the column that is being made
        uint32_t values; // in it
    };

    void correlate(channel_state& channel, const int16_t* pcm, uint32_t count);

    double sample_rate_;
    double lowest_;
    uint32_t lead_ = 0;
    kosc::receiver receiver_; // whose buffers correlate
    std::vector<channel_state> channels_;
};

} // namespace kosc_inspect

#endif
