// Repeats of a message, and microphones, added up: the whole of it, from samples to messages.
#ifndef KOSC_COMBINE_COMBINER_H
#define KOSC_COMBINE_COMBINER_H

#include "combine/frame_group.h"
#include "kosc/combining.h"

namespace kosc {

// A message that a combiner recovered; valid during the call.
struct recovered_message {
    const uint8_t* msg; // WEAK_MSG_LEN bytes
    uint32_t input;     // that reports it: the one that is being fed where it heard the newest frame
    double start;       // of the newest frame, in samples as that input counts
    combined_report_t report;
};

using take_recovered = void (*)(const recovered_message& message, void* user);

// A combiner for `input_num` microphones, for free_combiner(); null when memory is short or the configuration is not
// the built-in one in some band. `paras` must outlive it. Nothing is allocated afterwards.
combiner_t* make_combiner(const soundcomm_paras_t& paras, uint32_t input_num);

// Null is ignored.
void free_combiner(combiner_t* combiner);

// Tells that the next `count` samples of an input are one block, before they are fed. An input that lies behind the
// other by more than that and what is kept of sound has missed some: it goes on in step.
void begin_block(uint32_t input, uint64_t count, combiner_t* combiner);

// Takes `count` samples, and hands out what they complete.
void feed_combiner(uint32_t input, const int16_t* samples, uint32_t count, take_recovered take, void* user,
                   combiner_t* combiner);

// Takes a frame as each input heard it: what it completes is handed out, else it is kept. feed_combiner() does this for
// every frame that it finds.
void take_frame_heard(const weak_frame* frames, uint32_t count, take_recovered take, void* user, combiner_t* combiner);

// The combiner's maker of soft bits, for frames that come by another way than feed_combiner().
weak_frame_maker* maker_of(combiner_t* combiner);

// Encodes a message into the maker's `sent`.
void send_message(const uint8_t* msg, combiner_t* combiner);

// Samples that an input was fed, silence for what it missed included.
uint64_t samples_taken(const combiner_t& combiner, uint32_t input);

// Forgets all sound and all messages.
void restart_combiner(combiner_t* combiner);

// Tells that a frame which begins at an input's sample `start` was delivered by the receiver's own search.
void note_delivered(uint32_t input, double start, const uint8_t* msg, combiner_t* combiner);

combining_counts_t counts_of(const combiner_t& combiner);

// frame_length samples from `start` on, until the next call; null when they are no longer kept.
const double* samples_of(uint32_t input, double start, combiner_t* combiner);

} // namespace kosc

#endif
