#include "listener.h"

#include <algorithm>
#include <stdexcept>

listener::listener(uint32_t channel)
    : context_(soundcomm_init(soundcomm_default_cfg(), soundcomm_default_cfg())), channel_(channel)
{
    constexpr int RECEIVE = 1;
    if (!context_ ||
        !soundcomm_init_receive(context_.get(), soundcomm_default_rx_sync_paras(), soundcomm_default_audio_format())) {
        throw std::runtime_error("cannot set up the receiver");
    }
    const soundcomm_paras_t* const paras = soundcomm_get_paras(context_.get(), RECEIVE);
    container_ = soundcomm_get_datacontainer(paras, 0);
    message_length_ = paras->cfg.msg_byte_len;
}

void listener::hear(const std::vector<int16_t>& pcm, std::vector<heard_message>& heard)
{
    for (size_t done = 0; done < pcm.size();) {
        const size_t piece = std::min<size_t>(pcm.size() - done, data_container_unused(container_));
        hear_piece(pcm.data() + done, static_cast<uint32_t>(piece), heard);
        done += piece;
    }
}

void listener::finish(std::vector<heard_message>& heard)
{
    // A frame is looked for in windows as long as itself, and must lie in the buffer whole.
    hear(std::vector<int16_t>(2 * size_t{container_->frame_length}), heard);
}

void listener::hear_piece(const int16_t* pcm, uint32_t count, std::vector<heard_message>& heard)
{
    constexpr uint32_t ONE_TRACK = 1;
    if (count == 0 || !data_container_check_buff_length(container_, count) ||
        !data_container_recv_block(container_, pcm, ONE_TRACK, count)) {
        throw std::runtime_error("the receiver's buffer is in disorder");
    }
    received_ += count;

    sync_iter* const frame = data_container_begin(container_);
    for (; !sync_iter_is_end(frame); sync_iter_next(frame)) {
        decode(frame, heard);
    }
    data_container_rm_outdated(frame);
    sync_iter_free(frame);
}

void listener::decode(sync_iter* frame, std::vector<heard_message>& heard)
{
    constexpr uint32_t CORRECT = 1;
    const uint64_t sample = unwrapped(sync_iter_get_global_offset(frame));
    message_bytes bytes(message_length_);
    if (soundcomm_decode(context_.get(), data_container_get(frame), container_->frame_length, bytes.data(), nullptr,
                         message_length_) == CORRECT) {
        sync_iter_update_decode_state(frame, KOSC_FRAME_DECODED);
        heard.push_back({sample, channel_, std::move(bytes)});
    } else if (sample != last_unreadable_) { // windows overlap, so that a frame may be found again
        last_unreadable_ = sample;
        ++unreadable_frames_;
    }
}

// The library counts in 32 bits, a little over a day; a frame never lies further back than the buffer is long.
uint64_t listener::unwrapped(uint32_t offset) const
{
    const uint32_t samples_ago = static_cast<uint32_t>(received_) - offset;
    return received_ - samples_ago;
}
