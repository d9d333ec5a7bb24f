// The resampler where there is no libsoxr, which is faster: a windowed sinc, each sample by itself.
#include "resampler.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>

#include "channels.h"

namespace kosc_inspect {

using kosc_link::bessel_i0;
using kosc_link::PI;

struct rate_converter {
    std::vector<float> kernel; // PHASES values a sample at the input's rate, from its middle on
    double half_width;         // input samples from the middle of the kernel to its end
    double step;               // input samples from one output sample to the next
    double position;           // of the next output sample, in input samples from the first one kept
    std::vector<float> kept;   // interleaved, as much as is still needed
    uint64_t taken, made;      // frames in all
};

namespace {

constexpr double SHARPNESS = 10.0; // of the Kaiser window: 100 dB
constexpr uint32_t PHASES = 1024;  // linear interpolation between them errs by less than that

double weight(const rate_converter& converter, double distance)
{
    const double place = std::fabs(distance) * PHASES;
    const auto below = static_cast<size_t>(place);
    if (below + 1 >= converter.kernel.size()) {
        return 0.0;
    }
    const double share = place - static_cast<double>(below);
    return (1.0 - share) * double{converter.kernel[below]} + share * double{converter.kernel[below + 1]};
}

} // namespace

// Source of the window and of its length: Kaiser 1974, "Nonrecursive digital filter design using the I0-sinh window
// function".
resampler::resampler(double from, double to, uint32_t channels, double pass_band)
    : channels_(channels), rate_(to), ratio_(to / from)
{
    const double lower = std::min(from, to);
    const double passed = std::max(pass_band, LEAST_PASS_BAND * lower / 2.0);
    if (!(from > 0.0 && to > 0.0 && pass_band < lower / 2.0)) {
        throw std::runtime_error("cannot convert from " + std::to_string(std::lround(from)) +
                                 " Hz: the band lies outside");
    }
    constexpr double DECIBELS = 100.0;
    // What lies between the pass band and its mirror image about half the lower rate is the filter's slope.
    const double slope = (lower - 2.0 * passed) / from;
    const double cut_off = lower / from; // in half turns a sample
    converter_.reset(new rate_converter{});
    converter_->half_width = std::min((DECIBELS - 8.0) / (2.285 * 2.0 * PI * slope) / 2.0, 2000.0);
    converter_->step = from / to;
    converter_->kernel.resize(static_cast<size_t>(converter_->half_width * PHASES) + 2);
    for (size_t i = 0; i < converter_->kernel.size(); ++i) {
        const double distance = static_cast<double>(i) / PHASES;
        const double x = PI * cut_off * distance;
        const double edge = std::min(distance / converter_->half_width, 1.0);
        const double window = bessel_i0(SHARPNESS * std::sqrt(1.0 - edge * edge)) / bessel_i0(SHARPNESS);
        converter_->kernel[i] = static_cast<float>(cut_off * window * (i == 0 ? 1.0 : std::sin(x) / x));
    }
    // Silence before the sound, so that its first sample is in the middle of a kernel.
    const double lead = std::ceil(converter_->half_width);
    converter_->kept.resize(static_cast<size_t>(lead) * channels_);
    converter_->position = lead;
}

void resampler::releaser::operator()(rate_converter* converter) const { delete converter; }

size_t resampler::convert(const float* interleaved, size_t frames, std::vector<float>& out)
{
    rate_converter& c = *converter_;
    c.taken += frames;
    if (interleaved != nullptr) {
        c.kept.insert(c.kept.end(), interleaved, interleaved + frames * channels_);
    } else { // the end: silence behind it
        c.kept.resize(c.kept.size() + (static_cast<size_t>(c.half_width) + 2) * channels_);
    }
    const uint64_t most = interleaved != nullptr
                              ? UINT64_MAX
                              : static_cast<uint64_t>(std::llround(static_cast<double>(c.taken) * ratio_));
    const auto available = static_cast<double>(c.kept.size() / channels_);
    out.clear();
    std::vector<double> sums(channels_);
    for (; c.made < most && c.position + c.half_width < available - 1.0; ++c.made, c.position += c.step) {
        const auto first = static_cast<size_t>(std::max(std::ceil(c.position - c.half_width), 0.0));
        const auto last = static_cast<size_t>(c.position + c.half_width);
        std::fill(sums.begin(), sums.end(), 0.0);
        for (size_t k = first; k <= last; ++k) {
            const double w = weight(c, static_cast<double>(k) - c.position);
            for (uint32_t channel = 0; channel < channels_; ++channel) {
                sums[channel] += w * double{c.kept[k * channels_ + channel]};
            }
        }
        for (const double sum : sums) {
            out.push_back(static_cast<float>(sum));
        }
    }
    const double done = std::floor(std::max(c.position - c.half_width, 0.0));
    c.kept.erase(c.kept.begin(), c.kept.begin() + static_cast<ptrdiff_t>(done) * static_cast<ptrdiff_t>(channels_));
    c.position -= done;
    return out.size() / channels_;
}

double resampler::delay() const
{
    return static_cast<double>(converter_->taken) * ratio_ / rate_ - static_cast<double>(converter_->made) / rate_;
}

} // namespace kosc_inspect
