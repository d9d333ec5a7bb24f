// Listens to one channel of a recording, and tells where in it each message was heard, and how well.
#ifndef KOSC_TOOL_LISTENER_H
#define KOSC_TOOL_LISTENER_H

#include <cstdint>
#include <memory>
#include <vector>

#include "commands/message_text.h"
#include "kosc/core.h"

struct heard_message {
    uint64_t sample; // where its frame starts, counted from the start of the recording at the modem's rate
    uint32_t channel;
    message_bytes bytes;
    double correlation;      // height of the synchronisation peak, up to 1
    bool measured;           // the two figures below are; not without the second look
    double snr_db;           // power of a subcarrier over its noise
    double drift_ppm;        // received frequencies over sent ones, less 1
    bool second_look_needed; // it did not decode at once
};

class listener {
public:
    // `channel` goes into the messages. Throws when the modem cannot be set up.
    listener(uint32_t channel, bool second_look);

    // Hears `count` samples and appends the messages that end in them to `heard`.
    void hear(const int16_t* pcm, uint32_t count, std::vector<heard_message>& heard);
    // Hears the silence before a recording, so that a frame is found whose first samples are missing; returns its
    // samples, which count in the places of messages.
    uint32_t begin();
    // Hears the silence behind the recording, so that a frame that ends with it is found too.
    void finish(std::vector<heard_message>& heard);

    uint32_t frame_length() const { return soundcomm_get_frame_length(context_->rx_paras); }
    // Places that sounded like a frame and could not be read: damaged frames, and now and then just noise.
    uint64_t unreadable_frames() const { return unreadable_frames_; }

private:
    struct releaser {
        void operator()(soundcomm_context_t* context) const { soundcomm_release(context); }
    };

    void take(const frame_report_t& frame, std::vector<heard_message>& heard);

    std::unique_ptr<soundcomm_context_t, releaser> context_;
    uint32_t channel_;
    uint64_t unreadable_frames_ = 0;
    uint64_t last_unreadable_ = UINT64_MAX;
};

#endif
