#include "audio/frame_sound.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <stdexcept>
#include <string>

frame_encoder::frame_encoder(const band_list& bands)
{
    check_apart(bands);
    for (const sound_band& band : bands) {
        auto encoder = kosc::encoder::make(band.first_subcarrier);
        if (!encoder) {
            throw std::runtime_error(std::string("cannot set up the modem: ") + kosc::describe(encoder.why()));
        }
        encoders_.push_back(std::move(*encoder));
    }
}

std::vector<int16_t> frame_encoder::encode(const std::vector<message_bytes>& messages, size_t after) const
{
    std::vector<int32_t> sum(kosc::FRAME_SAMPLES);
    for (size_t i = 0; i < messages.size(); ++i) {
        const message_bytes& message = messages[i];
        const auto frame = encoders_[i].encode({reinterpret_cast<const char*>(message.data()), message.size()});
        if (!frame) {
            throw std::runtime_error(std::string("cannot encode the message: ") + kosc::describe(frame.why()));
        }
        std::transform(frame->begin(), frame->end(), sum.begin(), sum.begin(), std::plus<>());
    }
    int32_t peak = 1;
    std::for_each(sum.begin(), sum.end(), [&](int32_t sample) { peak = std::max(peak, std::abs(sample)); });
    const double scale = messages.size() > 1 ? static_cast<double>(INT16_MAX) / peak : 1.0;
    std::vector<int16_t> pcm(sum.size() + after);
    std::transform(sum.begin(), sum.end(), pcm.begin(),
                   [=](int32_t sample) { return static_cast<int16_t>(std::lround(sample * scale)); });
    return pcm;
}
