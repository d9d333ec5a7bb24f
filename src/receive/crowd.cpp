#include "kosc/crowd.h"

#include <algorithm>
#include <cmath>

#include "log/log_macros.h"
#include "platform/owned.h"
#include "receive/crowd_area.h"
#include "receive/crowd_search.h"
#include "sync/subtract.h"

using namespace kosc;

namespace {

using crowd_ptr = owned<crowd_t, free_crowd>;

// Room for new samples in front of the history, in frames: enough that the history is seldom moved.
constexpr double ROOM_FRAMES = 0.85;

void clear_track(crowd_track* track)
{
    track->scanned = 0;
    track->floor = {INFINITY, INFINITY, 0, 0};
    track->heard_num = 0;
    track->tried_num = 0;
}

crowd_t* make_crowd(const soundcomm_paras_t& paras)
{
    crowd_ptr crowd{alloc_record<crowd_t>()};
    if (!crowd) {
        return nullptr;
    }
    const uint64_t msg_len = paras.cfg.msg_byte_len;
    crowd->canceller = make_canceller(paras);
    crowd->messages = alloc_zeroed<uint8_t>(msg_len * HEARD_FRAMES * KOSC_MAX_TRACKS);
    if (crowd->canceller == nullptr || crowd->messages == nullptr) {
        return nullptr;
    }
    uint8_t* next = crowd->messages;
    for (crowd_track& track : crowd->track) {
        clear_track(&track);
        for (heard_frame& frame : track.heard) {
            frame.msg = next;
            next += msg_len;
        }
    }
    return crowd.release();
}

bool prepare_track(const soundcomm_paras_t& paras, data_container* container)
{
    const double capacity = crowd_history(paras) + ROOM_FRAMES * paras.frame.frame_length;
    return allows_subtraction(*container) && enlarge_buffer(container, static_cast<uint32_t>(capacity));
}

// Leaves each buffer as the plain search expects it: without what was searched already.
void drop_searched(soundcomm_paras_t* paras)
{
    for (uint32_t t = 0; t < paras->track_num; ++t) {
        data_container* const c = paras->track[t].container;
        const uint64_t front = paras->received - vector_size(c->corrcoef);
        const uint64_t searched = paras->crowd->track[t].scanned;
        const uint64_t next_start = searched - std::min<uint64_t>(searched, c->sync_length - 1);
        remove_oldest(c, next_start > front ? static_cast<uint32_t>(next_start - front) : 0);
    }
}

void switch_off(soundcomm_paras_t* paras)
{
    if (paras->crowd != nullptr) {
        drop_searched(paras);
        free_crowd(paras->crowd);
        paras->crowd = nullptr;
    }
}

} // namespace

namespace kosc {

void free_crowd(crowd_t* crowd)
{
    if (crowd != nullptr) {
        free_canceller(crowd->canceller);
        std::free(crowd->messages);
        std::free(crowd);
    }
}

void reset_crowd(soundcomm_paras_t* paras)
{
    for (uint32_t t = 0; t < KOSC_MAX_TRACKS && paras->crowd != nullptr; ++t) {
        clear_track(&paras->crowd->track[t]);
    }
}

bool prepare_crowd(soundcomm_paras_t* paras)
{
    for (uint32_t t = 0; t < paras->track_num && paras->crowd != nullptr; ++t) {
        if (!prepare_track(*paras, paras->track[t].container)) {
            KOSC_LOG_WARN("no crowd for this configuration");
            switch_off(paras);
            return false;
        }
    }
    return true;
}

} // namespace kosc

bool soundcomm_config_crowd(soundcomm_context_t* ctx, uint32_t mode)
{
    KOSC_RETURN_IF(ctx == nullptr, false, "ctx is null");
    KOSC_RETURN_IF(mode > KOSC_CROWD_CANCEL, false, "crowd mode %u is none", mode);
    soundcomm_paras_t* const paras = ctx->rx_paras;
    if (mode == KOSC_CROWD_OFF) {
        switch_off(paras);
        return true;
    }
    if (paras->second_look == nullptr) {
        KOSC_LOG_WARN("no crowd without the second look");
        switch_off(paras);
        return false;
    }
    if (paras->crowd == nullptr) {
        paras->crowd = make_crowd(*paras);
        if (paras->crowd == nullptr) {
            KOSC_LOG_WARN("no crowd for this configuration");
            return false;
        }
    }
    paras->crowd->mode = mode;
    return prepare_crowd(paras);
}

crowd_counts_t soundcomm_get_crowd_counts(const soundcomm_context_t* ctx)
{
    const crowd_t* const crowd = ctx != nullptr ? ctx->rx_paras->crowd : nullptr;
    return crowd != nullptr ? crowd->counts : crowd_counts_t{};
}
