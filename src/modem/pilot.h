// The two pilot symbols of a parameter set.
#ifndef KOSC_MODEM_PILOT_H
#define KOSC_MODEM_PILOT_H

#include "kosc/context.h"

namespace kosc {

// Builds the synchronisation pilot and, for frames with more than one pilot symbol, the estimating pilot. False, with
// messages, when one of them cannot be built; what was built stays in `paras`.
bool init_pilots(soundcomm_paras_t* paras);

// Frees both vectors of a pilot and clears it.
void clear_pilot(pilot_t* pilot);

} // namespace kosc

#endif
