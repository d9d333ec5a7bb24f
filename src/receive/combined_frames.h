// What joins a receiver with a combiner: samples and delivered frames in, recovered messages out.
#ifndef KOSC_RECEIVE_COMBINED_FRAMES_H
#define KOSC_RECEIVE_COMBINED_FRAMES_H

#include "kosc/combining.h"
#include "kosc/receiver.h"

namespace kosc {

// A combined message among those of a result set: where it was stored.
struct given_message {
    const uint8_t* msg;
    combined_report_t report;
};

// Has the combined messages of the set's next blocks noted in `given`, `room` of them; null: nowhere.
void list_combined(const soundcomm_paras_t& paras, given_message* given, uint32_t room);

// What was noted of the message that the last block has at `msg`; null when it was not combined.
const combined_report_t* find_combined(const soundcomm_paras_t& paras, const uint8_t* msg);

// Most combined messages that `data_len` samples can complete; 0 when combining is off.
uint32_t most_combined(const soundcomm_paras_t& paras, uint32_t data_len);

// These do nothing when combining is off. A block is announced, then taken in pieces; of a frame that decoded, the
// combiner learns before it takes the next piece.
void begin_combined_block(const soundcomm_paras_t& paras, uint32_t data_len);
void note_decoded(const soundcomm_paras_t& paras, const frame_report_t& frame);
void combine_piece(soundcomm_context_t* ctx, const int16_t* input, uint32_t piece, result_slot_t* slot);

// Forgets all sound, for samples are counted anew.
void restart_combining(const soundcomm_paras_t& paras);

// Ends the combining of all receivers that share the set's.
void end_combining(soundcomm_paras_t* paras);

} // namespace kosc

#endif
