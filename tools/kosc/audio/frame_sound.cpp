#include "audio/frame_sound.h"

#include <memory>
#include <stdexcept>

#include "kosc/kosc.h"

namespace {

struct handle_releaser {
    void operator()(soundcommu_handle_t* handle) const { ko_soundcommu_release(handle); }
};
using handle_ptr = std::unique_ptr<soundcommu_handle_t, handle_releaser>;

} // namespace

std::vector<int16_t> sound_of(const message_bytes& message, size_t before, size_t after)
{
    const auto ignore = [](const decode_result_t*, uint32_t) {};
    const handle_ptr handle{ko_soundcommu_init(ignore, ignore)};
    audio_para_t play{};
    audio_para_t record{};
    if (!handle || ko_soundcommu_get_audio_para(&play, &record) != 0) {
        throw std::runtime_error("cannot set up the modem");
    }
    std::vector<int16_t> pcm(before + play.frame_bytes / sizeof(int16_t) + after);
    if (ko_soundcommu_encode(handle.get(), message.data(), static_cast<uint32_t>(message.size()), pcm.data() + before,
                             play.frame_bytes) != 0) {
        throw std::runtime_error("cannot encode the message");
    }
    return pcm;
}
