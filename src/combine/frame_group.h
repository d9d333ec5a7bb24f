// Which frames carry the same message, and what their sum decodes to.
#ifndef KOSC_COMBINE_FRAME_GROUP_H
#define KOSC_COMBINE_FRAME_GROUP_H

#include "combine/agreement.h"

namespace kosc {

constexpr uint32_t MAX_KEPT = 48; // frames that are kept of two microphones together; of one, two thirds of them
constexpr uint32_t MAX_GROUP = MAX_KEPT + MAX_INPUTS;
constexpr uint32_t CRC_PARTS = 2;
constexpr uint32_t WINDOW_BITS = 16; // of the block; a CRC fills one
constexpr uint32_t WINDOWS = 16;

// Frames that are taken for the same message, each with the probability of that. The first `fresh` ones came last, from
// one frame as each microphone heard it; the group is theirs.
struct frame_group {
    uint32_t fresh;
    uint32_t count;
    weak_frame* frame[MAX_GROUP];
    double weight[MAX_GROUP];
    double turn[MAX_GROUP]; // what is to be added to the rate of each one's drift
    double snr;             // weighted sum
};

// A decoder of groups, with its memory.
struct group_decoder {
    weak_frame_maker maker;
    soft_decoder decoder; // owns its arrays
    bit_expectations expectations;
    bool crc_place[CRC_PARTS][WEAK_BITS]; // where the code bits of each CRC are sent
    float sum[WEAK_BITS];                 // of the weighted soft bits
    float expected[WEAK_BITS];            // scratch
    float sign[WEAK_BITS];                // the block that was decided last
    uint8_t msg[WEAK_MSG_LEN];            // and its message
    double llr[WEAK_BITS];                // scratch, for the decoder
    uint8_t earlier_bits[WEAK_STEPS];
    uint64_t attempts; // decodings so far
    uint64_t refused;  // groups whose CRCs matched: mixtures, or with a rival
};

// What is known of a frame's bits before they are looked at, from the drifts: those of one sender at rest are alike.
double prior_log_odds(double rate, double other_rate);

// Adds to a group of fresh frames, of `kept`, all that probably carry the same message. Soft assignment: the weight of
// each frame is the probability that it agrees with the weighted sum of the others, worked out anew three times.
// Source: of mixtures, by expectation and maximisation: Dempster, Laird and Rubin 1977, "Maximum likelihood from
// incomplete data via the EM algorithm".
void gather(weak_frame* kept, uint32_t kept_num, group_decoder* decoder, frame_group* group);

// Decodes the sum of a group's soft bits (Chase 1985, "Code combining"; weighted by SNR as maximum-ratio combining
// does: Brennan 1959, "Linear diversity combining techniques"), measures each frame's channel anew by what was decided,
// and decodes again, `passes` times at most. True when both CRCs match and it is no mixture of two messages; the
// message is left in decoder->msg, the signs of the last block in decoder->sign. With `turned` the soft bits are made
// anew under the group's turns first.
bool decode_group(const frame_group& group, int passes, bool turned, group_decoder* decoder);

// Finds the drift that the group's frames would share if their sender kept still, and sets their turns to it.
void find_common_drift(frame_group* group, group_decoder* decoder);

// Where the sum is weaker than elsewhere, messages may differ: keeps, of the frames gathered, those that agree with the
// fresh ones there. False when nothing was contested or no frame was dropped.
bool regroup(group_decoder* decoder, frame_group* group);

// Adds a weighted frame's soft bits to a sum.
void add_llr(double weight, const int8_t* llr, float* sum);

// Decodes decoder->sum.
decoded_block decode_sum(group_decoder* decoder);

// Whether the bits of a frame agree with a block's signs, beyond three standard deviations of what others would.
bool carries(const weak_frame& frame, const float* sign);

} // namespace kosc

#endif
