#include "resampler.h"

namespace kosc_inspect {

std::vector<float> resampled(const std::vector<float>& sound, double from, double to, double pass_band)
{
    constexpr uint32_t ONE_CHANNEL = 1;
    resampler converter(from, to, ONE_CHANNEL, pass_band);
    std::vector<float> most, rest;
    converter.convert(sound.data(), sound.size(), most);
    converter.finish(rest);
    most.insert(most.end(), rest.begin(), rest.end());
    return most;
}

} // namespace kosc_inspect
