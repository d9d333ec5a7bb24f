// Whether a decoded sum is a mixture of two messages.
#ifndef KOSC_COMBINE_MIXTURE_H
#define KOSC_COMBINE_MIXTURE_H

#include "combine/frame_group.h"

namespace kosc {

// Of two messages that differ little, the sum of equally many frames may pass both CRCs with the first half of one and
// the second half of the other, and no check of the sum can tell. But no frame carries that block: in either half some
// frames carry another one. Such another half is looked for: all that differ from the block in one byte and, as the CRC
// is linear, the same bits of the CRC; and whatever the code finds likeliest for the frames that agree least with the
// CRC. A group is a mixture when its frames, each given to the half that it is likelier to carry, are far likelier
// together than all with the block. The block is the one in decoder->sign; the decoder's scratch is overwritten.
// Source: of tests by the likelihoods of the best explanations: Neyman and Pearson 1928, "On the use and
// interpretation of certain test criteria for purposes of statistical inference".
bool is_mixture(const frame_group& group, group_decoder* decoder);

} // namespace kosc

#endif
