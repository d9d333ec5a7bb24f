#include "audio/frame_sound.h"

#include <algorithm>
#include <stdexcept>
#include <string>

#include "kosc/kosc.hpp"

std::vector<int16_t> sound_of(const message_bytes& message, size_t before, size_t after, const sound_band& band)
{
    const auto encoder = kosc::encoder::make(band.first_subcarrier);
    if (!encoder) {
        throw std::runtime_error(std::string("cannot set up the modem: ") + kosc::describe(encoder.why()));
    }
    const auto frame = encoder->encode({reinterpret_cast<const char*>(message.data()), message.size()});
    if (!frame) {
        throw std::runtime_error(std::string("cannot encode the message: ") + kosc::describe(frame.why()));
    }
    std::vector<int16_t> pcm(before + frame->size() + after);
    std::copy(frame->begin(), frame->end(), pcm.begin() + static_cast<std::ptrdiff_t>(before));
    return pcm;
}
