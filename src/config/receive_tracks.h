// Ownership of the receive tracks of a parameter set.
#ifndef KOSC_CONFIG_RECEIVE_TRACKS_H
#define KOSC_CONFIG_RECEIVE_TRACKS_H

#include "kosc/context.h"

namespace kosc {

// Frees what every track owns and clears it; the set can then be prepared for reception anew.
void release_receive_tracks(soundcomm_paras_t* paras);

} // namespace kosc

#endif
