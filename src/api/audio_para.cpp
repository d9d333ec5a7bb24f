#include "kosc/kosc.h"

#include "kosc/config.h"
#include "kosc/frame_layout.h"
#include "log/log_macros.h"

namespace {

constexpr uint32_t SAMPLE_RATE = 48000;
constexpr uint32_t PLAY_CHANNELS = 1;
constexpr uint32_t RECORD_CHANNELS = 2;
constexpr uint32_t BIT_DEPTH = 16;
constexpr uint32_t AUX_VALUE = 4;

void set_format(audio_para_t* para, uint32_t channels)
{
    para->sample_rate = SAMPLE_RATE;
    para->channel_num = channels;
    para->bit_depth = BIT_DEPTH;
}

} // namespace

int ko_soundcommu_get_audio_para(audio_para_t* play_para, audio_para_t* record_para)
{
    KOSC_RETURN_IF(play_para == nullptr || record_para == nullptr, -1, "play_para or record_para is NULL");
    set_format(play_para, PLAY_CHANNELS);
    play_para->frame_size = soundcomm_get_frame_length_from_cfg(soundcomm_default_cfg());
    KOSC_RETURN_IF(play_para->frame_size == 0, -1, "get frame size failed.");
    // Both fields count bytes: hosts size their play buffer from frame_size and pass that on to the encoder.
    play_para->frame_bytes = play_para->frame_size * static_cast<uint32_t>(sizeof(int16_t));
    play_para->frame_size = play_para->frame_bytes;
    play_para->aux_value = AUX_VALUE;
    set_format(record_para, RECORD_CHANNELS);
    return 0;
}

void ko_soundcommu_register_log(log_callback_t callback)
{
    soundcomm_set_log_level(KOSC_LEVEL_INFO);
    soundcomm_config_log_time(0);
    soundcomm_config_log_memory(1);
    soundcomm_set_log_callback(callback);
    KOSC_LOG_INFO("ko_soundcommu version: %s", KOSC_VERSION);
}
