// What is to be sent: one message, or the messages of a transfer.
#ifndef KOSC_TOOL_OUTGOING_H
#define KOSC_TOOL_OUTGOING_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "audio/frame_sound.h"
#include "commands/message_text.h"
#include "kosc_transfer/transfer.h"
#include "transfer/payload.h"
#include "transfer/seal.h"

class outgoing {
public:
    // A message of its own.
    explicit outgoing(message_bytes message);
    // A transfer of so many rounds, 0 for no end, sealed where there is a key. Throws when the payload is empty or too
    // long. Repetitions with another `nonce` are received anew.
    outgoing(payload content, const std::optional<secret_key>& key, uint32_t rounds, uint32_t nonce);

    bool is_transfer() const { return sender_ != nullptr; }
    // Messages that a receiver needs, and that are sent.
    uint32_t needed() const { return sender_ ? kosc_transfer_sender_needed(sender_.get()) : 1; }
    uint64_t count() const { return count_; }
    // What is sent at the same time in so many bands: in time `slot` the next messages of a transfer, one a band, or
    // one message in all of them. Empty behind the last.
    std::vector<message_bytes> at_once(uint64_t slot, size_t bands) const;
    uint64_t slots(size_t bands) const { return sender_ ? (count_ + bands - 1) / bands : 1; }

private:
    message_bytes single_;
    kosc::owner<kosc_transfer_sender, kosc_transfer_sender_free> sender_; // null: a message of its own
    uint64_t count_ = 1;
};

// A text: a message of its own if it fits into one and is not to be sealed.
outgoing outgoing_text(const std::string& text, const std::optional<secret_key>& key, uint32_t rounds, uint32_t nonce);
// Throws as outgoing_text() would.
void check_text(const std::string& text);
// A file, whatever its size; "-" is standard input.
outgoing outgoing_file(const std::string& path, const std::optional<secret_key>& key, uint32_t rounds);

#endif
