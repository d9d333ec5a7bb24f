#include "other_rate.h"

#include <algorithm>
#include <cmath>
#include <memory>

#include "inspector.h"
#include "resampler.h"

namespace kosc_inspect {
namespace {

// One channel converted from `rate` to 16 bits at the modem's rate.
std::vector<int16_t> converted(const std::vector<float>& interleaved, uint32_t channels, uint32_t channel,
                               uint32_t rate)
{
    std::vector<float> in;
    for (size_t i = channel; i < interleaved.size(); i += channels) {
        in.push_back(interleaved[i]);
    }
    if (rate != MODEM_RATE) {
        in = resampled(in, rate, MODEM_RATE);
    }
    std::vector<int16_t> pcm(in.size());
    std::transform(in.begin(), in.end(), pcm.begin(), [](float x) {
        return static_cast<int16_t>(std::lround(std::clamp(x * 32768.0F, -32768.0F, 32767.0F)));
    });
    return pcm;
}

bool decodes(const std::vector<int16_t>& pcm)
{
    const std::unique_ptr<soundcomm_context_t, decltype(&soundcomm_release)> context{make_receiver(KOSC_SECOND_LOOK_ON),
                                                                                     soundcomm_release};
    const std::vector<int16_t> silence(soundcomm_get_silence_around(context.get()));
    result_set_t counts{};
    for (const auto* sound : {&silence, &pcm, &silence}) {
        if (soundcomm_receive(context.get(), sound->data(), static_cast<uint32_t>(sound->size()), &counts) != 0) {
            return false;
        }
    }
    return counts.correct.count != 0;
}

} // namespace

std::optional<uint32_t> rate_that_decodes(const std::vector<float>& interleaved, uint32_t channels, uint32_t label)
{
    for (const uint32_t rate : {44100U, 48000U}) {
        for (uint32_t c = 0; c < channels && rate != label; ++c) {
            if (decodes(converted(interleaved, channels, c, rate))) {
                return rate;
            }
        }
    }
    return std::nullopt;
}

} // namespace kosc_inspect
