#include "kosc/handle.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "kosc/audio_render.h"
#include "kosc/bands.h"
#include "kosc/combining.h"
#include "kosc/crowd.h"
#include "kosc/encoder.h"
#include "kosc/second_look.h"
#include "log/log_macros.h"
#include "platform/owned.h"

using namespace kosc;

namespace {

constexpr audio_gain_t DEFAULT_GAIN = {1, 0.8};

using context_ptr = owned<soundcomm_context_t, soundcomm_release>;
using handle_ptr = owned<soundcommu_handle_t, ko_soundcommu_release>;

ko_soundcommu_options_t default_options()
{
    ko_soundcommu_options_t options{};
    options.size = sizeof(options);
    options.first_subcarrier = soundcomm_default_cfg()->ofdm_cfg.sc_start_idx;
    return options;
}

// Takes a field over where the host's record has it whole.
template <typename T>
void take(const ko_soundcommu_options_t& from, T ko_soundcommu_options_t::*field, ko_soundcommu_options_t* options)
{
    const auto* const begin = reinterpret_cast<const uint8_t*>(&from);
    const auto* const end = reinterpret_cast<const uint8_t*>(&(from.*field)) + sizeof(T);
    if (end - begin <= static_cast<ptrdiff_t>(from.size)) {
        options->*field = from.*field;
    }
}

bool read_options(const ko_soundcommu_options_t* from, ko_soundcommu_options_t* options)
{
    KOSC_RETURN_IF(from == nullptr, false, "options is NULL");
    KOSC_RETURN_IF(from->size < sizeof(from->size), false,
                   "options have size %u; fill them with ko_soundcommu_default_options()", from->size);
    const auto known = static_cast<uint32_t>(sizeof(*from));
    KOSC_RETURN_IF(from->size > known, false, "options have size %u, but this library knows only %u bytes of them",
                   from->size, known);
    *options = default_options();
    take(*from, &ko_soundcommu_options_t::first_subcarrier, options);
    take(*from, &ko_soundcommu_options_t::on_messages, options);
    take(*from, &ko_soundcommu_options_t::user, options);
    take(*from, &ko_soundcommu_options_t::second_look, options);
    take(*from, &ko_soundcommu_options_t::combining, options);
    take(*from, &ko_soundcommu_options_t::crowd, options);
    return true;
}

soundcomm_context_t* make_context(const soundcomm_cfg_t* cfg)
{
    context_ptr ctx{soundcomm_init(cfg, cfg)};
    const bool ready =
        ctx && soundcomm_init_receive(ctx.get(), soundcomm_default_rx_sync_paras(), soundcomm_default_audio_format());
    return ready ? ctx.release() : nullptr;
}

// A handle without callbacks.
handle_ptr make_handle(const soundcomm_cfg_t* cfg)
{
    handle_ptr handle{alloc_record<soundcommu_handle_t>()};
    KOSC_RETURN_IF(!handle, nullptr, "No enough memory to alloc kosc");
    for (soundcomm_context_t*& ctx : handle->ctx) {
        ctx = make_context(cfg);
        KOSC_RETURN_IF(ctx == nullptr, nullptr, "Fail to init context.");
    }
    return handle;
}

} // namespace

void ko_soundcommu_default_options(ko_soundcommu_options_t* options, uint32_t size)
{
    if (options == nullptr || size < sizeof(options->size)) {
        return;
    }
    ko_soundcommu_options_t known = default_options();
    known.size = size;
    std::memset(options, 0, size);
    std::memcpy(options, &known, std::min(size_t{size}, sizeof(known)));
}

soundcommu_handle_t* ko_soundcommu_init(recv_callback_t callback0, recv_callback_t callback1)
{
    KOSC_LOG_INFO("kosc init start");
    KOSC_RETURN_IF(callback0 == nullptr || callback1 == nullptr, nullptr, "Recv callback is NULL.");
    handle_ptr handle = make_handle(soundcomm_default_cfg());
    if (!handle) {
        return nullptr;
    }
    handle->recv_callback[0] = callback0;
    handle->recv_callback[1] = callback1;
    KOSC_LOG_INFO("kosc init finished");
    return handle.release();
}

soundcommu_handle_t* ko_soundcommu_init_with(const ko_soundcommu_options_t* options)
{
    KOSC_LOG_INFO("kosc init start");
    ko_soundcommu_options_t wanted;
    soundcomm_cfg_t cfg;
    if (!read_options(options, &wanted) || !soundcomm_cfg_for_band(wanted.first_subcarrier, &cfg)) {
        return nullptr;
    }
    handle_ptr handle = make_handle(&cfg);
    if (!handle || (wanted.second_look != 0 && ko_soundcommu_config_second_look(handle.get(), 1) != 0) ||
        (wanted.combining != KOSC_COMBINING_OFF &&
         ko_soundcommu_config_combining(handle.get(), wanted.combining) != 0)) {
        return nullptr;
    }
    if (wanted.crowd != KOSC_CROWD_OFF && ko_soundcommu_config_crowd(handle.get(), wanted.crowd) != 0) {
        return nullptr;
    }
    handle->on_messages = wanted.on_messages;
    handle->user = wanted.user;
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
        std::free(handle->combined[channel]);
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

int ko_soundcommu_config_combining(soundcommu_handle_t* handle, uint32_t mode)
{
    KOSC_RETURN_IF(handle == nullptr, -1, "kosc is NULL");
    const bool done = soundcomm_config_combining(handle->ctx[0], handle->ctx[1], mode);
    for (uint32_t& len : handle->result_len) {
        len = 0; // the result collectors are sized anew, with room for combined messages
    }
    return done ? 0 : -1;
}

int ko_soundcommu_config_crowd(soundcommu_handle_t* handle, uint32_t mode)
{
    KOSC_RETURN_IF(handle == nullptr, -1, "kosc is NULL");
    KOSC_RETURN_IF(mode > KOSC_CROWD_CANCEL, -1, "crowd mode %u is none", mode);
    for (int channel = 0; channel < KOSC_CHANNELS; ++channel) {
        handle->result_len[channel] = 0; // a block may now end more messages
        if (!soundcomm_config_crowd(handle->ctx[channel], mode)) {
            soundcomm_config_crowd(handle->ctx[0], KOSC_CROWD_OFF); // on both channels or on none
            return -1;
        }
    }
    return 0;
}
