#include "combine/known_messages.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace kosc {

bool was_delivered(const uint8_t* msg, double start, known_messages* known)
{
    for (auto& message : known->delivered) {
        if (message.any && std::memcmp(message.msg, msg, WEAK_MSG_LEN) == 0) {
            const bool lately = seconds_apart(message.start, start) < KEPT_SECONDS;
            message.start = start;
            return lately;
        }
    }
    auto& place = known->delivered[known->next_delivered++ % MAX_DELIVERED];
    place.any = true;
    place.start = start;
    std::copy_n(msg, WEAK_MSG_LEN, place.msg);
    return false;
}

void note_frame(uint32_t input, double start, known_messages* known)
{
    auto& note = known->noted[known->next_noted++ % MAX_NOTED];
    note.any = true;
    note.input = input;
    note.start = start;
}

bool was_noted(const known_messages& known, uint32_t input, double start)
{
    constexpr double SAME_FRAME = 300; // samples: its search may have taken an echo, or a drifting pilot's early peak
    return std::any_of(std::begin(known.noted), std::end(known.noted), [&](const auto& note) {
        return note.any && note.input == input && std::fabs(note.start - start) < SAME_FRAME;
    });
}

} // namespace kosc
