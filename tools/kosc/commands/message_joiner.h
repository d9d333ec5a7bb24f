// One message of several channels: each microphone of a device hears the same frame at its own distance.
#ifndef KOSC_TOOL_MESSAGE_JOINER_H
#define KOSC_TOOL_MESSAGE_JOINER_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

#include "commands/listener.h"

// Equal messages are one when they come in one band from different channels and their frames start within LONGEST_APART
// of each other. A sender that repeats itself cannot be so fast: frames do not overlap, and are twelve times as long.
class message_joiner {
public:
    static constexpr int64_t LONGEST_APART = 960; // samples; 20 ms, in which sound travels 7 m

    // Samples by which a frame that others cover may be heard later than one that none does.
    static constexpr int64_t LATEST_UNCOVERED = 24000;

    // `crowd`: frames may be covered, on one channel and not on another.
    message_joiner(size_t channels, bool crowd)
        : channels_(channels), wait_(kosc::FRAME_SAMPLES + LONGEST_APART + (crowd ? LATEST_UNCOVERED : 0))
    {
    }

    // Takes what one channel heard; returns how many other messages wait before the one that it belongs to.
    size_t add(const received_message& message);

    // Once every channel has been heard up to `samples`: takes out the next message that no channel can add to any
    // more, as its best channel heard it, which is the one with the highest signal-to-noise ratio, or correlation where
    // that is not measured. False when there is none.
    bool next(int64_t samples, received_message& message);

private:
    using copies = std::vector<received_message>;

    size_t channels_;
    int64_t wait_; // from where a frame starts to where no channel can add to it
    std::deque<copies> waiting_;
};

#endif
