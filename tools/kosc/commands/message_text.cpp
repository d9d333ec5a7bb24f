#include "commands/message_text.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>

#include <nlohmann/json.hpp>

namespace {

constexpr size_t DIGITS_A_BYTE = 2;

} // namespace

bool is_utf8(const std::string& text)
{
    try {
        nlohmann::json(text).dump(); // the writer checks, strictly, and throws
        return true;
    } catch (const nlohmann::json::type_error&) {
        return false;
    }
}

bool has_controls(const std::string& text)
{
    constexpr uint8_t SPACE = 0x20, DEL = 0x7F, C1_LEAD = 0xC2, C1_END = 0xA0;
    uint8_t previous = 0;
    return std::any_of(text.begin(), text.end(), [&previous](char letter) {
        const auto byte = static_cast<uint8_t>(letter);
        const bool second_of_c1 = previous == C1_LEAD && byte < C1_END;
        previous = byte;
        return byte < SPACE || byte == DEL || second_of_c1;
    });
}

std::string too_long(uint64_t length, size_t limit)
{
    return "the message is " + std::to_string(length) + " bytes long, the limit is " + std::to_string(limit);
}

message_bytes message_from_text(const std::string& text, size_t size)
{
    if (text.size() > size) {
        throw std::runtime_error(too_long(text.size(), size));
    }
    if (!is_utf8(text)) {
        throw std::runtime_error("the text is not UTF-8; --hex takes any bytes");
    }
    message_bytes message(text.begin(), text.end());
    message.resize(size);
    return message;
}

message_bytes message_from_hex(const std::string& hex, size_t size)
{
    if (hex.size() > size * DIGITS_A_BYTE) {
        throw std::runtime_error(too_long((hex.size() + 1) / DIGITS_A_BYTE, size));
    }
    message_bytes message(size);
    for (size_t i = 0; i < hex.size(); i += DIGITS_A_BYTE) {
        const char* const end = hex.data() + i + DIGITS_A_BYTE;
        if (hex.size() % DIGITS_A_BYTE != 0 ||
            std::from_chars(hex.data() + i, end, message[i / DIGITS_A_BYTE], 16).ptr != end) {
            throw std::runtime_error("--hex takes two digits 0-9 or a-f for each byte");
        }
    }
    return message;
}

std::optional<std::string> text_of_message(const message_bytes& message)
{
    const auto last = std::find_if(message.rbegin(), message.rend(), [](uint8_t byte) { return byte != 0; });
    std::string text(message.begin(), last.base());
    if (text.empty() || !is_utf8(text) || has_controls(text)) {
        return std::nullopt;
    }
    return text;
}

std::string hex_of_message(const message_bytes& message)
{
    constexpr char DIGITS[] = "0123456789abcdef";
    std::string hex;
    for (const uint8_t byte : message) {
        hex += DIGITS[byte >> 4];
        hex += DIGITS[byte & 0x0F];
    }
    return hex;
}

std::string shown(const message_bytes& message) { return text_of_message(message).value_or(hex_of_message(message)); }
