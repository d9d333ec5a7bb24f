// Listens to one channel of a recording, and tells where in it each message was heard.
#ifndef KOSC_TOOL_LISTENER_H
#define KOSC_TOOL_LISTENER_H

#include <cstdint>
#include <memory>
#include <vector>

#include "kosc/core.h"
#include "message_text.h"

struct heard_message {
    uint64_t sample; // where its frame starts, counted from the start of the recording at the modem's rate
    uint32_t channel;
    message_bytes bytes;
};

class listener {
public:
    // `channel` goes into the messages. Throws when the modem cannot be set up.
    explicit listener(uint32_t channel);

    // Hears `pcm` and appends the messages that end in it to `heard`.
    void hear(const std::vector<int16_t>& pcm, std::vector<heard_message>& heard);
    // Hears the silence behind the recording, so that a frame that ends with it is found too.
    void finish(std::vector<heard_message>& heard);

    // Places that sounded like a frame and could not be read: damaged frames, and now and then just noise.
    uint64_t unreadable_frames() const { return unreadable_frames_; }

private:
    struct releaser {
        void operator()(soundcomm_context_t* context) const { soundcomm_release(context); }
    };

    void hear_piece(const int16_t* pcm, uint32_t count, std::vector<heard_message>& heard);
    void decode(sync_iter* frame, std::vector<heard_message>& heard);
    uint64_t unwrapped(uint32_t offset) const;

    std::unique_ptr<soundcomm_context_t, releaser> context_;
    data_container* container_ = nullptr; // the context's
    uint32_t channel_;
    uint32_t message_length_ = 0;
    uint64_t received_ = 0; // samples so far
    uint64_t unreadable_frames_ = 0;
    uint64_t last_unreadable_ = UINT64_MAX;
};

#endif
