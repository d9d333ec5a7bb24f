// One message over one channel into one receiver: what the link benchmark and its gate count.
#ifndef KOSC_LINK_LINK_H
#define KOSC_LINK_LINK_H

#include <string>

#include "channels.h"
#include "kosc/kosc.hpp"

namespace kosc_link {

// The modem of a band, and where its subcarriers lie.
soundcomm_cfg_t configure(uint32_t first_subcarrier);
band band_of(uint32_t first_subcarrier);

std::vector<uint8_t> random_message(random_source* random);

signal encode(const soundcomm_context_t& ctx, const std::vector<uint8_t>& message);

signal with_echoes(const signal& frame); // at 48 and 130 samples

signal in_small_room(const signal& frame, random_source* random); // RT60 0.2 s, 6 dB of direct sound over the tail

// What is heard beside the frame. White noise is measured within the modem's band, other sounds over all frequencies
// and all of their time.
enum class noise { WHITE, SPEECH, MUSIC };

// A named channel and the signal-to-noise ratios between which its frame error rates fall.
struct link_channel {
    std::string name;
    std::string title;
    double low_db;
    double high_db;
    signal (*apply)(const signal& frame, band where, random_source* random);
    noise sound = noise::WHITE;
};

// Other sounds of a mean power of 1, which a frame meets at a random place.
struct sounds {
    signal speech;
    signal music;
};

const std::vector<link_channel>& link_channels();

const link_channel* find_channel(const std::string& name);

// What came of one recording.
struct outcome {
    bool decoded_at_once; // by the default receiver
    bool decoded;         // at once or in the second look
    bool wrong;           // a message was delivered that was not sent
};

// A modem that sends random messages and listens to each through the receive driver, from a fresh start, with the
// second look on. A frame that decodes at once is what the default receiver decodes: the second look begins only
// where that has failed.
class link_modem {
public:
    // `others` must outlive the modem; without it, there is only white noise.
    explicit link_modem(uint32_t first_subcarrier = kosc::DEFAULT_SUBCARRIER, const sounds* others = nullptr);
    // The sent frame of message number `seed`, after the channel, without noise.
    signal transmit(const link_channel& channel, uint64_t seed);
    // Adds the channel's noise to what transmit() returned, as seeded there, and listens.
    outcome receive(const link_channel& channel, const signal& clean, double snr_db);

private:
    void add_other(signal* recording, const signal& sound, double ratio_db, random_source* random) const;

    kosc::context_ptr ctx_;
    band where_{};
    const sounds* others_;
    random_source random_{0};
    std::vector<uint8_t> message_;
    size_t lead_in_ = 0;
};

} // namespace kosc_link

#endif
