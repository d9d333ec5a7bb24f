#include "receive/receive_tracks.h"

#include "log/log_macros.h"
#include "platform/owned.h"
#include "receive/combined_frames.h"
#include "receive/crowd_area.h"
#include "second_look/second_look_area.h"

namespace kosc {

bool init_receive_track(soundcomm_paras_t* paras, receive_track_t* track, uint32_t corr_capacity)
{
    const frame_struct_t& frame = paras->frame;
    track->container =
        data_container_init(corr_capacity, frame.frame_length, frame.len_before_sync, paras->rx_sync_paras,
                            paras->sync_pilot.reference, paras->cfg.ofdm_cfg.symbol_len, track->filter);
    KOSC_RETURN_IF(track->container == nullptr, false, "Fail to init dc.");
    track->decode_cache = alloc_array<uint8_t>(paras->cfg.msg_byte_len);
    KOSC_RETURN_IF(track->decode_cache == nullptr, false, "Fail to malloc decode_cache.");
    return true;
}

void release_receive_tracks(soundcomm_paras_t* paras)
{
    for (receive_track_t& track : paras->track) {
        free_butterworth_bandpass(track.filter);
        data_container_free(track.container);
        std::free(track.decode_cache);
        track = {};
    }
    paras->track_num = 0;
    restart_combining(*paras);
    for (uint32_t t = 0; t < KOSC_MAX_TRACKS && paras->second_look != nullptr; ++t) {
        paras->second_look->recovered[t].any = false; // samples are counted anew
    }
    reset_crowd(paras);
}

} // namespace kosc
