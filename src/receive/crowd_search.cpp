#include "receive/crowd_search.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "receive/crowd_area.h"
#include "receive/found_frame.h"
#include "second_look/second_look_area.h"
#include "sync/peaks.h"
#include "sync/subtract.h"

namespace kosc {
namespace {

constexpr double PPM = 1e-6;
constexpr uint32_t SAME_PLACE = 8;         // samples by which a peak may move when samples under it change
constexpr uint32_t MOST_CANCELLATIONS = 3; // of one frame
constexpr uint32_t FLOOR_STEP = 64;        // positions between two looks at the noise floor
constexpr uint32_t FLOOR_SAMPLES = 480000; // of a stretch, ten seconds at 48 kHz
constexpr double QUIET = 3.0;              // times the floor
constexpr double QUIET_SHARE = 0.1;        // of a frame's power
constexpr double SILENT = 1.6;             // times the floor, which is the least of many windows
constexpr uint32_t SETTLING = 64;          // samples behind an estimate's span that should be there

// A track's search in one call.
struct search {
    soundcomm_context_t* ctx;
    receive_track_t* entry;
    result_slot_t* slot;
    crowd_t* crowd;
    crowd_track* state;
    data_container* buffer;
    uint64_t front; // place of the buffer's first position
};

uint64_t distance(uint64_t a, uint64_t b) { return a > b ? a - b : b - a; }

bool cancels(const search& s) { return s.crowd->mode == KOSC_CROWD_CANCEL && s.ctx->rx_paras->second_look != nullptr; }

uint32_t remembered(uint32_t count, uint32_t ring) { return std::min(count, ring); }

// Looks at the power of the positions that came since the last look.
void follow_floor(const data_container& c, uint64_t received, noise_floor* floor)
{
    const auto count = static_cast<uint32_t>(std::min<uint64_t>(received - floor->followed, vector_size(c.corrcoef)));
    for (uint32_t back = 1; back <= count; back += FLOOR_STEP) {
        if (received >= uint64_t{c.history_length} + back) { // else the window reaches before the first sample
            floor->least =
                std::min(floor->least, vector_at(c.data_norm, -static_cast<int32_t>(back)) / c.history_length);
        }
    }
    floor->followed = received;
    floor->seen += count;
    if (floor->seen >= FLOOR_SAMPLES) {
        *floor = {INFINITY, floor->least, 0, received};
    }
}

double floor_of(const noise_floor& floor)
{
    const double least = std::min(floor.least, floor.least_before);
    return std::isfinite(least) ? std::max(least, 0.0) : 0.0;
}

// How often the samples of a frame that starts at `start` have changed.
uint32_t count_changes(const search& s, uint64_t start)
{
    const uint64_t reach = s.buffer->frame_length + span_of(*s.crowd->canceller, reach::TAIL).count;
    uint32_t changes = 0;
    for (uint32_t i = 0; i < remembered(s.state->heard_num, HEARD_FRAMES); ++i) {
        const heard_frame& h = s.state->heard[i];
        changes += distance(h.start, start) < reach ? h.cancelled : 0;
    }
    return changes;
}

bool remember_try(const search& s, uint64_t place, bool* first)
{
    crowd_track& state = *s.state;
    const uint32_t changes = count_changes(s, place - (s.buffer->sync_length - 1));
    *first = true;
    for (uint32_t i = 0; i < remembered(state.tried_num, TRIED_PEAKS); ++i) {
        const tried_peak& peak = state.tried[i];
        if (distance(peak.place, place) < SAME_PLACE) {
            *first = false;
            if (peak.changes == changes) {
                return false;
            }
        }
    }
    state.tried[state.tried_num++ % TRIED_PEAKS] = {place, changes};
    return true;
}

heard_frame* find_heard(const search& s, const frame_report_t& frame)
{
    for (uint32_t i = 0; i < remembered(s.state->heard_num, HEARD_FRAMES); ++i) {
        heard_frame& h = s.state->heard[i];
        if (distance(h.start, frame.sample) < s.buffer->frame_length / 2 &&
            std::memcmp(h.msg, frame.msg, frame.msg_len) == 0) {
            return &h;
        }
    }
    return nullptr;
}

// The clock that a frame was decoded with; the first look knows none.
frame_clock clock_of(const soundcomm_paras_t& paras, const frame_quality_t& quality)
{
    const double length = paras.frame.frame_length;
    const double change = quality.needed ? PPM * quality.drift_change_ppm / length : 0.0;
    const double middle_rate = quality.needed ? PPM * quality.drift_ppm : 0.0;
    const double anchor = make_clock(paras, middle_rate, change).received_anchor;
    return make_clock(paras, middle_rate - change * (length / 2 - anchor), change);
}

// Whether the window right before a frame holds hardly more than noise, beside the frame's own window, and nothing was
// cancelled there. It may hold some of the frame: in a room the search takes the strongest arrival for the first.
bool began_in_silence(const search& s, uint64_t start)
{
    const data_container& c = *s.buffer;
    if (start < s.front + 1 || count_changes(s, start) != 0) {
        return false;
    }
    const double* const energy = c.data_norm->begin + (start - 1 - s.front);
    return *energy <= QUIET * floor_of(s.state->floor) * c.history_length + QUIET_SHARE * energy[c.history_length];
}

void remember_heard(const search& s, const frame_report_t& frame)
{
    heard_frame& h = s.state->heard[s.state->heard_num++ % HEARD_FRAMES];
    uint8_t* const msg = h.msg;
    std::memcpy(msg, frame.msg, frame.msg_len);
    const frame_clock clock = clock_of(*s.ctx->rx_paras, frame.quality);
    h = {frame.sample, clock, clock, false, 0, cancels(s), false, began_in_silence(s, frame.sample), false, msg};
}

// Whether most of a frame would lie under one that was heard and has not been found to have company. Such peaks are
// that frame's own symbols and echoes, and would cost a second look each; if not, it will be cancelled, and they are
// searched again.
bool belongs_to_heard(const search& s, uint64_t start)
{
    bool belongs = false;
    for (uint32_t i = 0; i < remembered(s.state->heard_num, HEARD_FRAMES); ++i) {
        const heard_frame& h = s.state->heard[i];
        belongs = belongs || (h.cancelled == 0 && start > h.start && start - h.start < s.buffer->frame_length / 2);
    }
    return belongs && cancels(s);
}

// Tries the frame whose pilot ends at a position.
void try_peak(const search& s, uint32_t position)
{
    bool first = true;
    if (belongs_to_heard(s, s.front + position - (s.buffer->sync_length - 1)) ||
        !remember_try(s, s.front + position, &first)) {
        return;
    }
    ++s.crowd->counts.tried;
    const uint32_t start = position - (s.buffer->sync_length - 1);
    const sync_iter iter = {s.buffer, 0, start, KOSC_FRAME_NOT_DECODED};
    const frame_report_t frame = examine_found(*s.ctx, s.entry, iter, data_container_get(&iter));
    if (frame.verdict != 1) {
        if (first) {
            deliver_found(*s.ctx, frame, s.slot);
        }
        return;
    }
    heard_frame* const before = find_heard(s, frame);
    if (before == nullptr) {
        remember_heard(s, frame);
        deliver_found(*s.ctx, frame, s.slot);
        return;
    }
    ++s.crowd->counts.repeated;
    // An echo, or what its cancellation left.
    before->due = before->due || (before->cancelled > 0 && before->cancelled < MOST_CANCELLATIONS);
}

// Behind the last peak whose frame is complete.
uint32_t end_of_peaks(const data_container& c)
{
    const uint32_t size = vector_size(c.corrcoef);
    return size - std::min(size, c.frame_length - c.sync_length);
}

void try_peaks(const search& s)
{
    const data_container& c = *s.buffer;
    const uint32_t end = end_of_peaks(c);
    const uint64_t from = s.state->scanned > s.front ? s.state->scanned - s.front : 0;
    auto next = static_cast<uint32_t>(std::max<uint64_t>(from, c.sync_length - 1));
    while ((next = next_peak(c, next, end)) != NO_MORE_PEAKS) {
        try_peak(s, next++);
    }
    s.state->scanned = std::max(s.state->scanned, s.front + end);
}

// Whether a frame that is due, with the samples that an estimate takes, is to be cancelled now.
bool has_company(const search& s, const cancel_job& job, heard_frame* h)
{
    if (h->waits) {
        h->waits = false;
        cancel_job about = job;
        about.clock = h->about;
        return !is_alone(s.crowd->canceller, about);
    }
    frame_clock clock = job.clock;
    const left_over found = find_company(s.crowd->canceller, job, &clock);
    if (found == left_over::AS_OF_A_ROOM && h->in_silence && h->cancelled == 0) {
        h->about = clock;
        h->waits = true;
        h->due = true;
        return false;
    }
    return found != left_over::NOTHING;
}

// Takes what was received of a frame out of the samples. False when nothing was.
bool cancel(const search& s, reach far, heard_frame* h)
{
    const soundcomm_paras_t& paras = *s.ctx->rx_paras;
    second_look_t* const look = paras.second_look;
    data_container* const c = s.buffer;
    const auto start = static_cast<int64_t>(h->start - s.front); // as a position
    encode_message(h->msg, &look->decoder, look->sent);
    const int64_t first = -static_cast<int64_t>(c->history_length) - start;
    const int64_t end = static_cast<int64_t>(vector_size(c->corrcoef)) - start;
    const cancel_job job = {look->sent,
                            {c->data->begin - first, first, end},
                            {c->filtered_data->begin - first, first, end},
                            h->clock,
                            h->clock_known,
                            floor_of(s.state->floor),
                            far};
    const double* const received =
        has_company(s, job, h) ? estimate_received(s.crowd->canceller, job, &h->clock) : nullptr;
    if (received == nullptr) {
        return false;
    }
    const cancel_span span = span_of(*s.crowd->canceller, far);
    subtract_run(c, {start + span.first, span.count, received});
    h->clock_known = true;
    ++h->cancelled;
    ++s.crowd->counts.cancelled;
    // Frames that begin up to a frame earlier reach into what has changed.
    const uint64_t behind = h->start + c->sync_length;
    s.state->scanned = std::min(s.state->scanned, behind - std::min<uint64_t>(behind, c->frame_length));
    return true;
}

bool is_complete(const search& s, const heard_frame& h, reach far)
{
    const cancel_span span = span_of(*s.crowd->canceller, far);
    const int64_t end = static_cast<int64_t>(h.start - s.front) + span.first + span.count + SETTLING;
    return end <= static_cast<int64_t>(vector_size(s.buffer->corrcoef));
}

// Cancels the next frame that is due, within its prefix; true when samples have changed. Only when none is left so, one
// with its tail: a long response can explain much of another frame that is alike, which must have been decoded before.
bool cancel_next(const search& s)
{
    if (s.ctx->rx_paras->second_look == nullptr) {
        return false;
    }
    const uint32_t count = remembered(s.state->heard_num, HEARD_FRAMES);
    for (uint32_t i = 0; i < count; ++i) {
        heard_frame& h = s.state->heard[i];
        if (h.due && h.start >= s.front && is_complete(s, h, h.waits ? reach::ROOM : reach::PREFIX)) {
            h.due = false;
            const bool first = h.cancelled == 0;
            if (cancel(s, reach::PREFIX, &h)) {
                h.tail_due = first;
                return true;
            }
        }
    }
    for (uint32_t i = 0; i < count; ++i) {
        heard_frame& h = s.state->heard[i];
        if (h.tail_due && h.start >= s.front && is_complete(s, h, reach::TAIL)) {
            h.tail_due = false;
            if (cancel(s, reach::TAIL, &h)) {
                return true;
            }
        }
    }
    return false;
}

// What began before the last two frames is needed once what covers it has been cancelled. It still sounds a window
// later: where that is silent, nothing is kept of it, and less is moved whenever the buffer is full.
void drop_oldest(const search& s)
{
    const soundcomm_paras_t& paras = *s.ctx->rx_paras;
    const data_container& c = *s.buffer;
    const uint32_t size = vector_size(c.corrcoef);
    const uint32_t two_frames = 2 * paras.frame.frame_length + PEAK_REACH + SETTLING;
    const bool silent = size > two_frames && c.data_norm->begin[size - two_frames + c.history_length] <=
                                                 SILENT * floor_of(s.state->floor) * c.history_length;
    const uint32_t keep = silent ? two_frames : crowd_history(paras);
    remove_oldest(s.buffer, size > keep ? size - keep : 0);
}

} // namespace

uint32_t crowd_history(const soundcomm_paras_t& paras)
{
    // When a frame has been cancelled with its tail, those that begin up to a frame before it are searched again.
    return span_of(*paras.crowd->canceller, reach::ROOM).count + paras.frame.frame_length + PEAK_REACH + SETTLING;
}

void decode_crowd(soundcomm_context_t* ctx, receive_track_t* entry, result_slot_t* slot)
{
    const soundcomm_paras_t& paras = *ctx->rx_paras;
    crowd_track* const state = &paras.crowd->track[entry - paras.track];
    data_container* const buffer = entry->container;
    const uint64_t front = paras.received - vector_size(buffer->corrcoef);
    const search s = {ctx, entry, slot, paras.crowd, state, buffer, front};
    follow_floor(*buffer, paras.received, &state->floor);
    if (slot != nullptr) {
        do {
            try_peaks(s);
        } while (cancel_next(s));
    } else {
        state->scanned = std::max(state->scanned, front + end_of_peaks(*buffer));
    }
    drop_oldest(s);
}

} // namespace kosc
