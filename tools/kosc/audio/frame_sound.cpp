#include "audio/frame_sound.h"

#include <algorithm>
#include <stdexcept>
#include <string_view>

#include "kosc/kosc.hpp"

std::vector<int16_t> sound_of(const message_bytes& message, size_t before, size_t after, const sound_band& band)
{
    const auto encoder = kosc::encoder::make(band.first_subcarrier);
    if (!encoder) {
        throw std::runtime_error("cannot set up the modem");
    }
    const auto frame = encoder->encode({reinterpret_cast<const char*>(message.data()), message.size()});
    if (!frame) {
        throw std::runtime_error("cannot encode the message");
    }
    std::vector<int16_t> pcm(before + frame->size() + after);
    std::copy(frame->begin(), frame->end(), pcm.begin() + static_cast<std::ptrdiff_t>(before));
    return pcm;
}
