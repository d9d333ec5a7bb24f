// What happens to a frame that the search found.
#ifndef KOSC_RECEIVE_FOUND_FRAME_H
#define KOSC_RECEIVE_FOUND_FRAME_H

#include "kosc/receiver.h"

namespace kosc {

inline bool has_room(const result_part_t& part, uint32_t msg_len)
{
    return part.buffer != nullptr && part.room >= msg_len;
}

// Decodes the iterator's frame, files it in `slot`, and reports it to whoever asked for that. Returns the report; its
// message lies in the track's cache. A frame that was recovered before, or is `early` and was delivered before, is
// neither filed nor reported again.
frame_report_t decode_found(soundcomm_context_t* ctx, receive_track_t* entry, result_slot_t* slot,
                            const sync_iter& iter, const double* samples, bool early);

// Whether a frame decoded without the second look.
inline bool decodes_at_once(const frame_report_t& frame) { return frame.verdict == 1 && !frame.quality.needed; }

// Counts a decoded frame in `slot`, with its message where that has room.
void file_decoded(const frame_report_t& frame, result_slot_t* slot);

// Its parts, for a search that knows by itself what it has delivered: decodes the iterator's frame into the track's
// cache, and files and reports what came of it.
frame_report_t examine_found(const soundcomm_context_t& ctx, const receive_track_t* entry, const sync_iter& iter,
                             const double* samples);
void deliver_found(const soundcomm_context_t& ctx, const frame_report_t& frame, result_slot_t* slot);

} // namespace kosc

#endif
