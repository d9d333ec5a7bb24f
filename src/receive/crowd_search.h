// The search for frames that may lie over each other.
#ifndef KOSC_RECEIVE_CROWD_SEARCH_H
#define KOSC_RECEIVE_CROWD_SEARCH_H

#include "kosc/receiver.h"

namespace kosc {

// Correlation positions that the search keeps when it has seen all of them: two frames and a room's tail.
uint32_t crowd_history(const soundcomm_paras_t& paras);

// Tries every peak of a track whose frame is complete, files what decodes in `slot`, cancels it where that is asked for
// and searches again; then drops what no later frame needs. With no slot all frames are skipped.
void decode_crowd(soundcomm_context_t* ctx, receive_track_t* entry, result_slot_t* slot);

} // namespace kosc

#endif
