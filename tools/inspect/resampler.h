// Sound at any rate as sound at the modem's.
#ifndef KOSC_INSPECT_RESAMPLER_H
#define KOSC_INSPECT_RESAMPLER_H

#include <soxr.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace kosc_inspect {

// Flat over the modem's band from every rate that holds it: 0.005 dB are lost at the top subcarrier from 44.1 kHz.
class resampler {
public:
    // Throws when memory is short.
    resampler(uint32_t rate, uint32_t channels);

    // Puts into `out` what `frames` more interleaved samples yield, which may be nothing, and returns its frames.
    size_t convert(const float* interleaved, size_t frames, std::vector<float>& out);
    // The sound has ended: puts the rest into `out`. Together with it there is as much sound as went in.
    size_t finish(std::vector<float>& out) { return convert(nullptr, 0, out); }
    // Seconds of the sound that went in and did not come out yet.
    double delay() const;

private:
    struct releaser {
        void operator()(soxr* converter) const { soxr_delete(converter); }
    };

    std::unique_ptr<soxr, releaser> converter_;
    uint32_t channels_;
    double ratio_; // frames out over frames in
};

} // namespace kosc_inspect

#endif
