// What was delivered lately: messages, and places where the receiver's own search took a frame.
#ifndef KOSC_COMBINE_KNOWN_MESSAGES_H
#define KOSC_COMBINE_KNOWN_MESSAGES_H

#include <cmath>

#include "combine/weak_layout.h"

namespace kosc {

constexpr double KEPT_SECONDS = 12;
constexpr uint32_t MAX_DELIVERED = 128; // messages that are remembered: two inputs hear 100 in those seconds
constexpr uint32_t MAX_NOTED = 16;      // frames that the receiver's own search delivered

struct delivered_message {
    bool any;
    double start; // of the frame that it was last recovered from
    uint8_t msg[WEAK_MSG_LEN];
};

struct noted_frame {
    bool any;
    uint32_t input;
    double start;
};

// Empty when cleared.
struct known_messages {
    delivered_message delivered[MAX_DELIVERED];
    uint32_t next_delivered;
    noted_frame noted[MAX_NOTED];
    uint32_t next_noted;
};

// Of two places, in samples.
inline double seconds_apart(double a, double b) { return std::fabs(a - b) / WEAK_SAMPLE_RATE; }

// Whether the message was delivered within the last seconds; then that is prolonged, else it is remembered.
bool was_delivered(const uint8_t* msg, double start, known_messages* known);

// Remembers a frame that the receiver's own search took.
void note_frame(uint32_t input, double start, known_messages* known);

// Whether that was the frame at `start`.
bool was_noted(const known_messages& known, uint32_t input, double start);

} // namespace kosc

#endif
