#include "resampler.h"

#include <soxr.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>

namespace kosc_inspect {

struct rate_converter {
    soxr_t soxr;
};

resampler::resampler(double from, double to, uint32_t channels, double pass_band)
    : channels_(channels), rate_(to), ratio_(to / from)
{
    const soxr_io_spec_t samples = soxr_io_spec(SOXR_FLOAT32_I, SOXR_FLOAT32_I);
    soxr_quality_spec_t quality = soxr_quality_spec(SOXR_HQ, 0);
    quality.passband_end = std::max(pass_band / (std::min(from, to) / 2.0), LEAST_PASS_BAND);
    soxr_error_t error = nullptr;
    converter_.reset(new rate_converter{soxr_create(from, to, channels, &error, &samples, &quality, nullptr)});
    if (error != nullptr) {
        throw std::runtime_error("cannot convert from " + std::to_string(std::lround(from)) + " Hz: " + error);
    }
}

void resampler::releaser::operator()(rate_converter* converter) const
{
    soxr_delete(converter->soxr);
    delete converter;
}

size_t resampler::convert(const float* interleaved, size_t frames, std::vector<float>& out)
{
    constexpr size_t SPARE = 4096;
    const size_t room = static_cast<size_t>(std::ceil(static_cast<double>(frames) * ratio_)) + SPARE;
    size_t taken = 0;
    size_t made = 0;
    for (size_t used = 0, got = room; taken < frames || got == room; taken += used, made += got) {
        out.resize((made + room) * channels_);
        const float* const from = interleaved == nullptr ? nullptr : interleaved + taken * channels_;
        const soxr_error_t error =
            soxr_process(converter_->soxr, from, frames - taken, &used, &out[made * channels_], room, &got);
        if (error != nullptr) {
            throw std::runtime_error(std::string("cannot convert the sample rate: ") + error);
        }
    }
    out.resize(made * channels_);
    return made;
}

double resampler::delay() const { return soxr_delay(converter_->soxr) / rate_; }

} // namespace kosc_inspect
