#include "commands/listener.h"

#include <stdexcept>

listener::listener(uint32_t channel, bool second_look)
    : context_(soundcomm_init(soundcomm_default_cfg(), soundcomm_default_cfg())), channel_(channel)
{
    if (!context_ ||
        !soundcomm_init_receive(context_.get(), soundcomm_default_rx_sync_paras(), soundcomm_default_audio_format()) ||
        (second_look && !soundcomm_config_second_look(context_.get(), KOSC_SECOND_LOOK_MEASURE))) {
        throw std::runtime_error("cannot set up the receiver");
    }
}

void listener::hear(const int16_t* pcm, uint32_t count, std::vector<heard_message>& heard)
{
    struct target {
        listener* self;
        std::vector<heard_message>* heard;
    } to{this, &heard};
    const auto take_frame = [](const frame_report_t* frame, void* user) {
        const auto* const into = static_cast<target*>(user);
        into->self->take(*frame, *into->heard);
    };
    soundcomm_set_frame_callback(context_.get(), take_frame, &to); // at every call: a listener may have moved
    result_set_t counts{};                                         // frames come through the callback
    if (count != 0 && soundcomm_receive(context_.get(), pcm, count, &counts) != 0) {
        throw std::runtime_error("the receiver's buffer is in disorder");
    }
}

uint32_t listener::begin()
{
    std::vector<heard_message> none;
    finish(none);
    return soundcomm_get_silence_around(context_.get());
}

void listener::finish(std::vector<heard_message>& heard)
{
    const std::vector<int16_t> silence(soundcomm_get_silence_around(context_.get()));
    hear(silence.data(), static_cast<uint32_t>(silence.size()), heard);
}

void listener::take(const frame_report_t& frame, std::vector<heard_message>& heard)
{
    constexpr uint32_t CORRECT = 1;
    const frame_quality_t& quality = frame.quality;
    if (frame.verdict == CORRECT) {
        heard.push_back({frame.sample, channel_, message_bytes(frame.msg, frame.msg + frame.msg_len), frame.correlation,
                         quality.attempts != 0, quality.snr_db, quality.drift_ppm, quality.needed});
    } else if (frame.sample != last_unreadable_) { // windows overlap, so that a frame may be found again
        last_unreadable_ = frame.sample;
        ++unreadable_frames_;
    }
}
