// Whether a decoded sum could as well be another block.
#ifndef KOSC_COMBINE_RIVALS_H
#define KOSC_COMBINE_RIVALS_H

#include "combine/frame_group.h"

namespace kosc {

// Some blocks differ in so few code bits, and not at all in what the CRCs see, that noise may put the one in the
// other's place: their odds, which the sum tells, must not be near to even. Looks for them among the paths that the
// decoder nearly took, up to three together. The decoder must have decoded `bits` last, from decoder.sum.
bool has_rival(const uint8_t* bits, const group_decoder& decoder);

} // namespace kosc

#endif
