// Ownership of what reception adds to a parameter set.
#ifndef KOSC_CONFIG_RECEIVE_TRACKS_H
#define KOSC_CONFIG_RECEIVE_TRACKS_H

#include "kosc/context.h"

namespace kosc {

// Frees what every track owns and clears it; the set can then be prepared for reception anew.
void release_receive_tracks(soundcomm_paras_t* paras);

// Frees a second look, which the receiver makes and whose parameter set owns it; null is ignored.
void free_second_look(struct second_look_t* look);

} // namespace kosc

#endif
