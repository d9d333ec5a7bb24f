// FrameGenerate() into an array that is already there.
#ifndef KOSC_TX_FRAME_GENERATOR_H
#define KOSC_TX_FRAME_GENERATOR_H

#include "kosc/context.h"

namespace kosc {

// Writes the frame_length samples of a frame of `qpsk`; false when their number does not fit the layout or memory is
// short, with a part of the frame written.
bool generate_frame(const soundcomm_paras_t& paras, const kom_vector_complex* qpsk, double* frame);

} // namespace kosc

#endif
