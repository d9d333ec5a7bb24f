// Whether a decoded sum is a mixture of two messages.
#ifndef KOSC_COMBINE_MIXTURE_H
#define KOSC_COMBINE_MIXTURE_H

#include "combine/frame_group.h"

namespace kosc {

// Of two messages that differ little, the sum of equally many frames may pass both CRCs with the first half of one and
// the second half of the other, and no check of the sum can tell. But no frame carries that block. So each frame of the
// group counts with the lesser of what its bits say for the one CRC and for the other. Together they must say more than
// nothing, and no less, but for chance, than frames that carry the block would; and so must they for either CRC. The
// block is the one in decoder.sign.
bool is_mixture(const frame_group& group, const group_decoder& decoder);

} // namespace kosc

#endif
