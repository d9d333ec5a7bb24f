// From the samples of a frame to equalised subcarrier values: the decoder's steps up to the channel.
#ifndef KOSC_DECODE_DEMODULATOR_H
#define KOSC_DECODE_DEMODULATOR_H

#include "kosc/decoder.h"

namespace kosc {

// Fills sc_data and sc_pilot with the subcarrier values of every symbol of the frame. False, with a message, when
// memory is short or the layout has no place for a symbol.
bool demodulate(const soundcomm_paras_t& paras, const double* frame, decode_content_t* content);

// Turns every received pilot into the channel's response at that pilot.
bool estimate_channel(const soundcomm_paras_t& paras, decode_content_t* content);

// Divides every data symbol by its channel estimate; false when the layout has fewer estimates than needed.
bool equalise(const soundcomm_paras_t& paras, decode_content_t* content);

// Undoes the PAPR reduction of every data symbol; false when that fails or its type is unknown.
bool restore_papr(const soundcomm_paras_t& paras, decode_content_t* content);

} // namespace kosc

#endif
