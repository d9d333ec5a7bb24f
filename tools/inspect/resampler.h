// Sound at one rate as sound at another.
#ifndef KOSC_INSPECT_RESAMPLER_H
#define KOSC_INSPECT_RESAMPLER_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace kosc_inspect {

// The least share of the lower rate's half that passes: cheap, and leaves most of the spectrum as it was.
constexpr double LEAST_PASS_BAND = 0.875;

struct rate_converter; // libsoxr's, or sinc_resampler.cpp's

// Flat over the modem's band from every rate that holds it: 0.005 dB are lost at the top subcarrier from 44.1 kHz.
class resampler {
public:
    // Flat up to `pass_band` Hz, which lies below half of either rate; by default to just above the near-ultrasonic
    // band. Throws when it does not, or memory is short.
    resampler(double from, double to, uint32_t channels, double pass_band = 21000.0);

    // Puts into `out` what `frames` more interleaved samples yield, which may be nothing, and returns its frames.
    size_t convert(const float* interleaved, size_t frames, std::vector<float>& out);
    // The sound has ended: puts the rest into `out`. Together with it there is as much sound as went in.
    size_t finish(std::vector<float>& out) { return convert(nullptr, 0, out); }
    // Seconds of the sound that went in and did not come out yet.
    double delay() const;

private:
    struct releaser {
        void operator()(rate_converter* converter) const;
    };

    std::unique_ptr<rate_converter, releaser> converter_;
    uint32_t channels_;
    double rate_;  // of what comes out
    double ratio_; // frames out over frames in
};

// All of one channel's sound at once.
std::vector<float> resampled(const std::vector<float>& sound, double from, double to, double pass_band);

} // namespace kosc_inspect

#endif
