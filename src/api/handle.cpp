#include "kosc/handle.h"

#include <cstdlib>

#include "kosc/audio_render.h"
#include "kosc/encoder.h"
#include "kosc/second_look.h"
#include "log/log_macros.h"
#include "platform/owned.h"

using namespace kosc;

namespace {

constexpr audio_gain_t DEFAULT_GAIN = {1, 0.8};

using context_ptr = owned<soundcomm_context_t, soundcomm_release>;
using handle_ptr = owned<soundcommu_handle_t, ko_soundcommu_release>;

soundcomm_context_t* make_context()
{
    const soundcomm_cfg_t* const cfg = soundcomm_default_cfg();
    context_ptr ctx{soundcomm_init(cfg, cfg)};
    const bool ready =
        ctx && soundcomm_init_receive(ctx.get(), soundcomm_default_rx_sync_paras(), soundcomm_default_audio_format());
    return ready ? ctx.release() : nullptr;
}

} // namespace

soundcommu_handle_t* ko_soundcommu_init(recv_callback_t callback0, recv_callback_t callback1)
{
    KOSC_LOG_INFO("kosc init start");
    KOSC_RETURN_IF(callback0 == nullptr || callback1 == nullptr, nullptr, "Recv callback is NULL.");
    handle_ptr handle{alloc_record<soundcommu_handle_t>()};
    KOSC_RETURN_IF(!handle, nullptr, "No enough memory to alloc kosc");
    for (soundcomm_context_t*& ctx : handle->ctx) {
        ctx = make_context();
        KOSC_RETURN_IF(ctx == nullptr, nullptr, "Fail to init context.");
    }
    handle->recv_callback[0] = callback0;
    handle->recv_callback[1] = callback1;
    KOSC_LOG_INFO("kosc init finished");
    return handle.release();
}

void ko_soundcommu_release(soundcommu_handle_t* handle)
{
    if (handle == nullptr) {
        return;
    }
    for (int channel = 0; channel < KOSC_CHANNELS; ++channel) {
        if (handle->ctx[channel] != nullptr) {
            KOSC_LOG_INFO("kosc release ctx %d", channel);
            soundcomm_release(handle->ctx[channel]);
        }
        if (handle->result[channel].correct.buffer != nullptr) {
            KOSC_LOG_INFO("kosc release result buff %d", channel);
            std::free(handle->result[channel].correct.buffer);
        }
    }
    std::free(handle);
    KOSC_LOG_INFO("kosc release finished.");
}

int ko_soundcommu_encode(soundcommu_handle_t* handle, const uint8_t* msg, uint32_t msg_len, int16_t* encoded_frame,
                         uint32_t frame_bytes)
{
    const soundcomm_cfg_t* const cfg = soundcomm_default_cfg();
    KOSC_RETURN_IF(handle == nullptr, -1, "kosc is NULL");
    KOSC_RETURN_IF(msg == nullptr, -1, "msg is NULL");
    KOSC_RETURN_IF(msg_len != cfg->msg_byte_len, -1, "Msg length %d %d invalid", msg_len, cfg->msg_byte_len);
    KOSC_RETURN_IF(encoded_frame == nullptr, -1, "encoded_frame is NULL");
    const auto samples = static_cast<uint32_t>(frame_bytes / sizeof(int16_t));
    KOSC_RETURN_IF(samples != soundcomm_get_frame_length_from_cfg(cfg), -1, "frame length %d invalid", samples);
    const block_ptr<double> frame{alloc_array<double>(samples)};
    KOSC_RETURN_IF(!frame, -1, "fail to malloc encode data");
    const soundcomm_paras_t* const paras = soundcomm_get_paras(handle->ctx[0], 0);
    KOSC_RETURN_IF(soundcomm_encode(paras, msg, msg_len, frame.get(), samples) != 0, -1, "soundcomm encode fail");
    KOSC_RETURN_IF(
        !soundcomm_make_audio(soundcomm_default_audio_format(), DEFAULT_GAIN, frame.get(), samples, encoded_frame), -1,
        "make audio failed");
    KOSC_LOG_INFO("soundcomm encode successfully.");
    return 0;
}

int ko_soundcommu_config_second_look(soundcommu_handle_t* handle, uint32_t enable)
{
    KOSC_RETURN_IF(handle == nullptr, -1, "kosc is NULL");
    for (soundcomm_context_t* const ctx : handle->ctx) {
        if (!soundcomm_config_second_look(ctx, enable != 0 ? KOSC_SECOND_LOOK_ON : KOSC_SECOND_LOOK_OFF)) {
            soundcomm_config_second_look(handle->ctx[0], KOSC_SECOND_LOOK_OFF); // on both channels or on none
            return -1;
        }
    }
    return 0;
}
