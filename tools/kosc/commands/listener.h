// Receives on all channels of a sound in one or more bands, and tells where each message was received, and how well.
#ifndef KOSC_TOOL_LISTENER_H
#define KOSC_TOOL_LISTENER_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "audio/sound_bands.h"
#include "commands/message_text.h"
#include "kosc/kosc.hpp"

// How a sound is listened to.
struct receiver_options {
    bool plain = false;   // no second look
    bool combine = false; // repeats are added up, and the two channels of a sound that has two
    bool crowd = false;   // frames that overlap are all heard; not with `plain`
};

struct received_message {
    int64_t sample;   // where its frame starts, at the modem's rate; below 0 when its first samples are missing
    uint32_t channel; // counted from 1, as people and audio editors do
    std::string band; // as name_of() has it
    message_bytes bytes;
    double correlation;      // height of the synchronisation peak, up to 1
    bool measured;           // the two figures below are; not without the second look
    double snr_db;           // power of a subcarrier over its noise
    double drift_ppm;        // received frequencies over sent ones, less 1
    bool second_look_needed; // it did not decode at once
    // From what it was put together that no frame gave alone; the place and the figures above are of the newest then.
    std::optional<combined_report_t> combined;
};

class listener {
public:
    using channels_pcm = std::vector<std::vector<int16_t>>;

    // `cut`: the sound begins somewhere, so that a frame may lack its first samples. Throws when memory is short.
    listener(uint32_t channels, const band_list& bands, const receiver_options& how, bool cut);

    // Takes the next samples, one vector a channel; returns the messages that end in them, in the order of time.
    std::vector<received_message> receive(const channels_pcm& pcm);
    // Takes the silence behind the sound, so that a frame that ends with it is found too.
    std::vector<received_message> finish();

    // Places that sounded like a frame and could not be read: damaged frames, and now and then just noise.
    uint64_t unreadable_frames() const { return unreadable_frames_; }

private:
    struct band_receiver {
        std::string name;
        kosc::receiver receiver;
    };
    // Hands each receiver, with what it is to do with its frames, to `step`.
    template <typename Step> std::vector<received_message> each_band(Step step);

    uint32_t combining_; // KOSC_COMBINING_...
    std::vector<band_receiver> bands_;
    uint64_t unreadable_frames_ = 0;
};

#endif
