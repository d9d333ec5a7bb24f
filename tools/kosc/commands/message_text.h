// Messages are bytes; people type and read text or hexadecimal digits.
#ifndef KOSC_TOOL_MESSAGE_TEXT_H
#define KOSC_TOOL_MESSAGE_TEXT_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "kosc/kosc.hpp"

using message_bytes = std::vector<uint8_t>;

// The bytes of `text` padded with zeros to `size`; throws when it is not UTF-8 or too long.
message_bytes message_from_text(const std::string& text, size_t size = kosc::MESSAGE_BYTES);

// The bytes that the digits of `hex` name, two digits a byte, padded with zeros to `size`; throws likewise.
message_bytes message_from_hex(const std::string& hex, size_t size = kosc::MESSAGE_BYTES);

// The refusal of a text of `length` bytes.
std::string too_long(uint64_t length, size_t limit);

bool is_utf8(const std::string& text);

// Whether UTF-8 text holds what may move a cursor, ring a bell or end a line: the C0 and C1 sets and DEL.
bool has_controls(const std::string& text);

// The message as text without its trailing zeros; nothing when that is empty, not UTF-8, or has control characters.
std::optional<std::string> text_of_message(const message_bytes& message);

// Two lower-case digits a byte.
std::string hex_of_message(const message_bytes& message);

// The one, or else the other.
std::string shown(const message_bytes& message);

#endif
