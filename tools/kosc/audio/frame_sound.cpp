#include "audio/frame_sound.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <string_view>

using kosc_inspect::value_of;

frame_encoder::frame_encoder(const band_list& bands)
{
    check_apart(bands);
    for (const sound_band& band : bands) {
        encoders_.push_back(value_of(kosc::encoder::make(band.first_subcarrier), "cannot set up the modem"));
    }
}

std::vector<int16_t> frame_encoder::encode(const std::vector<message_bytes>& messages, size_t after) const
{
    std::vector<int32_t> sum(kosc::FRAME_SAMPLES);
    for (size_t i = 0; i < messages.size(); ++i) {
        const std::string_view message{reinterpret_cast<const char*>(messages[i].data()), messages[i].size()};
        const std::vector<int16_t> frame = value_of(encoders_[i].encode(message), "cannot encode the message");
        std::transform(frame.begin(), frame.end(), sum.begin(), sum.begin(), std::plus<>());
    }
    int32_t peak = 1;
    std::for_each(sum.begin(), sum.end(), [&](int32_t sample) { peak = std::max(peak, std::abs(sample)); });
    const double scale = messages.size() > 1 ? static_cast<double>(INT16_MAX) / peak : 1.0;
    std::vector<int16_t> pcm(sum.size() + after);
    std::transform(sum.begin(), sum.end(), pcm.begin(),
                   [=](int32_t sample) { return static_cast<int16_t>(std::lround(sample * scale)); });
    return pcm;
}
