// A combiner's parts, for those who make it up.
#ifndef KOSC_COMBINE_COMBINER_PARTS_H
#define KOSC_COMBINE_COMBINER_PARTS_H

#include "combine/combiner.h"
#include "combine/frame_store.h"
#include "combine/known_messages.h"

struct combiner_t {
    kosc::group_decoder groups;
    kosc::frame_search search;
    kosc::band_mixer mixer;
    uint32_t input_num;
    kosc::microphone input[kosc::MAX_INPUTS];
    uint64_t next[kosc::MAX_INPUTS]; // first baseband sample of the next segment
    kosc::frame_store store;
    kosc::weak_frame fresh[kosc::MAX_INPUTS];
    kosc::known_messages known;
    combining_counts_t counts;
    uint32_t fed; // input whose samples are being fed
    kosc::take_recovered take;
    void* user;
    void* block; // owned; all arrays
};

namespace kosc {

constexpr uint32_t BLOCK_BYTES = WEAK_MSG_LEN + 4; // a message and its CRCs

// What the first `count` frames in `fresh` decode to, alone and with those kept, is handed out; else they are kept.
void take_fresh(uint32_t count, combiner_t* combiner);

} // namespace kosc

#endif
