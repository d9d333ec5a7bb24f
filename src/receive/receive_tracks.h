// What reception adds to a parameter set, track by track.
#ifndef KOSC_RECEIVE_RECEIVE_TRACKS_H
#define KOSC_RECEIVE_RECEIVE_TRACKS_H

#include "kosc/context.h"

namespace kosc {

// Creates the sample buffer and the message cache of a track that has its filter. False, with a message, when memory is
// short; what was made stays in the track.
bool init_receive_track(soundcomm_paras_t* paras, receive_track_t* track, uint32_t corr_capacity);

// Frees what every track owns and clears it; the set can then be prepared for reception anew.
void release_receive_tracks(soundcomm_paras_t* paras);

} // namespace kosc

#endif
