// From soft bits to a block of message and CRCs, and from such a block to the symbols that carry it.
#ifndef KOSC_SECOND_LOOK_SOFT_DECODER_H
#define KOSC_SECOND_LOOK_SOFT_DECODER_H

#include "kosc/context.h"
#include "kosc/soft_viterbi.h"
#include "second_look/soft_bits.h"

namespace kosc {

// A decoder's tables and memory.
struct soft_decoder {
    const soundcomm_paras_t* paras;
    soft_viterbi_t* viterbi; // owned
    uint32_t step_num;       // bits of a block and its tail
    uint32_t coded_len;      // code bits before puncturing
    uint32_t* position;      // owned; place of each code bit in the frame, NO_POSITION when it is not sent
    double* coded_llr;       // owned; coded_len log-likelihood ratios, 0 where nothing was sent
    double* qpsk;            // owned; re_num complex values: the data cells of a frame that is encoded again
    uint8_t* byte_block;     // owned; all arrays of bytes below
    uint8_t* bits;
    uint8_t* bytes;
    uint8_t* crc_scratch;
    uint8_t* crc_matches;
};

// What was decoded; views of the decoder's memory, until its next call.
struct decoded_block {
    const uint8_t* bits; // step_num bits, one a byte, the tail behind frame.bits of them
    const uint8_t* bytes;
    bool crcs_match;
};

constexpr uint32_t NO_POSITION = UINT32_MAX;

// A decoder in cleared memory. False when memory is short or the code has no soft decoder; what was made is then
// released by release_soft_decoder() too.
bool init_soft_decoder(const soundcomm_paras_t& paras, soft_decoder* decoder);

void release_soft_decoder(soft_decoder* decoder);

// Decodes the soft bits of a whole frame: the most likely block, and whether it is consistent with its CRCs.
decoded_block decode_soft(const soft_bits& bits, soft_decoder* decoder);

// Writes the pilots into `symbols` rows of sc_num complex values.
void place_pilots(const soundcomm_paras_t& paras, double* symbols);

// Writes what a block is sent as into the data symbols of such rows. Spread values are not supported.
void encode_block(const decoded_block& block, soft_decoder* decoder, double* symbols);

// The same for a message of msg_byte_len bytes; its block takes the place of the one decoded last.
void encode_message(const uint8_t* message, soft_decoder* decoder, double* symbols);

} // namespace kosc

#endif
