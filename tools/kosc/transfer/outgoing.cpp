#include "transfer/outgoing.h"

#include <algorithm>
#include <ctime>
#include <stdexcept>

namespace {

size_t longest(const std::optional<secret_key>& key) { return KOSC_TRANSFER_MAX_BYTES - (key ? SEAL_BYTES : 0); }

} // namespace

outgoing::outgoing(message_bytes message) : single_(std::move(message)) {}

outgoing::outgoing(payload content, const std::optional<secret_key>& key, uint32_t rounds, uint32_t nonce)
{
    if (content.bytes.size() > longest(key)) {
        throw std::runtime_error(too_long(content.bytes.size(), longest(key)));
    }
    if (key) {
        content = seal(content, *key, static_cast<uint64_t>(std::time(nullptr)));
    }
    const auto size = static_cast<uint32_t>(content.bytes.size());
    sender_.reset(kosc_transfer_sender_init(content.bytes.data(), size, content.kind, nonce));
    if (!sender_) {
        throw std::runtime_error("not enough memory for a transfer of " + std::to_string(size) + " bytes");
    }
    count_ = rounds == 0 ? UINT64_MAX / 2 : uint64_t{rounds} * kosc_transfer_round(needed());
}

std::vector<message_bytes> outgoing::at_once(uint64_t slot, size_t bands) const
{
    if (!sender_) {
        return slot == 0 ? std::vector<message_bytes>(bands, single_) : std::vector<message_bytes>();
    }
    std::vector<message_bytes> messages;
    for (uint64_t i = slot * bands; i < std::min(count_, (slot + 1) * bands); ++i) {
        messages.emplace_back(KOSC_TRANSFER_MESSAGE_BYTES);
        kosc_transfer_sender_message(sender_.get(), static_cast<uint32_t>(i), messages.back().data());
    }
    return messages;
}

void check_text(const std::string& text) { message_from_text(text, KOSC_TRANSFER_MAX_BYTES); }

outgoing outgoing_text(const std::string& text, const std::optional<secret_key>& key, uint32_t rounds, uint32_t nonce)
{
    if (text.size() <= kosc::MESSAGE_BYTES && !key) {
        return outgoing(message_from_text(text));
    }
    check_text(text);
    return {text_payload(text), key, rounds, nonce};
}

outgoing outgoing_file(const std::string& path, const std::optional<secret_key>& key, uint32_t rounds)
{
    return {file_payload(path, longest(key)), key, rounds, 0};
}
