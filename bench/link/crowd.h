// Recordings in which frames of several senders overlap, and what a receiver hears of them.
#ifndef KOSC_LINK_CROWD_H
#define KOSC_LINK_CROWD_H

#include <string>

#include "link.h"

namespace kosc_link {

// What lies between each sender and the microphone. All senders but those of CLEAN have clocks of their own, 100 ppm
// fast and slow in turn.
enum class surroundings {
    CLEAN,
    ECHOES, // at 48 and 130 samples
    ROOM    // RT60 0.2 s, 6 dB of direct sound over the tail
};

struct sent_message {
    std::vector<uint8_t> bytes;
    size_t start; // sample
    double level_db = 0;
};

struct crowd_recording {
    std::vector<int16_t> pcm;
    std::vector<sent_message> sent;
    uint32_t first_subcarrier = kosc::DEFAULT_SUBCARRIER;
};

// Frames that overlap by design.
struct overlap {
    surroundings where = surroundings::CLEAN;
    uint32_t senders = 2;
    // Two senders: how much later the second one starts, but for some samples. More: within how many samples all start.
    uint32_t offset = 0;
    double step_db = 0;       // each sender is that much quieter than the one before; of two, either may start first
    double snr_db = 20;       // of the quietest, in the band
    uint32_t equal_bytes = 0; // that all messages begin with
    uint32_t first_subcarrier = kosc::DEFAULT_SUBCARRIER;
};

crowd_recording make_overlap(const overlap& o, uint64_t seed);

// Devices that send when they like, each in its own place of one room.
struct random_access {
    double seconds = 90;
    double load = 0.5; // frames begun in the time of one
    uint32_t devices = 30;
    double rt60 = 0.2;     // seconds; 0: direct sound alone
    double levels_db = 12; // over which the devices' levels spread
    double snr_db = 15;    // of the quietest
    uint32_t first_subcarrier = kosc::DEFAULT_SUBCARRIER;
};

crowd_recording make_random_access(const random_access& r, uint64_t seed);

// Frames that nothing covers, some 0.8 seconds apart, each from a place of its own.
struct frames_apart {
    surroundings where = surroundings::CLEAN;
    uint32_t frames = 100;
    double snr_db = 20;
    uint32_t first_subcarrier = kosc::DEFAULT_SUBCARRIER;
};

crowd_recording make_frames_apart(const frames_apart& f, uint64_t seed);

// How a receiver listens.
struct listener {
    const char* name;
    uint32_t second_look; // KOSC_SECOND_LOOK_...
    uint32_t crowd;       // KOSC_CROWD_...
};

struct heard_crowd {
    uint32_t delivered; // sent messages that were delivered
    uint32_t wrong;     // messages delivered that were not sent
    uint32_t repeated;  // deliveries of a message beyond the first
    double latency;     // mean over the delivered ones of seconds from the frame's end to the block that delivered it
    double worst_latency;
    double milliseconds; // of processor time
    crowd_counts_t counts;
    std::vector<bool> was_delivered; // by sent message
    std::vector<uint64_t> failed;    // where peaks were tried, and no frame was decoded
};

// Feeds a recording to a fresh receiver in blocks.
heard_crowd listen(const crowd_recording& recording, const listener& how, uint32_t block);

// What became of the frames that were not delivered.
struct losses {
    uint32_t within_prefix; // another frame starts within the prefix of it
    uint32_t no_peak;       // of the others: nothing was found where it starts
    uint32_t not_decoded;   // found there, in vain
    uint32_t overlapped;    // frames that lay over the lost ones, over all
    uint32_t lost_too;      // those of them that were lost
};

losses explain_losses(const crowd_recording& recording, const heard_crowd& heard);

} // namespace kosc_link

#endif
