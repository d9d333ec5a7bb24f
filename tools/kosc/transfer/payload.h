// What a transfer carries: a text, a file with its name, or bytes.
#ifndef KOSC_TOOL_PAYLOAD_H
#define KOSC_TOOL_PAYLOAD_H

#include <cstdint>
#include <string>
#include <vector>

struct payload {
    uint32_t kind; // KOSC_TRANSFER_...
    std::vector<uint8_t> bytes;
};

payload text_payload(const std::string& text);

// A file as it is sent: under the last part of its path as its name; standard input under none. Throws when it cannot
// be read, is longer than `limit` with its name, or has a name that cannot be sent.
payload file_payload(const std::string& path, size_t limit);

// A file's bytes. Throws when it cannot be read or has more than `limit`.
std::string read_bytes(const std::string& path, size_t limit);

// Drops the one line end that editors and `echo` leave behind a text.
void drop_line_end(std::string& text);

struct named_file {
    std::string name; // as it was sent: any bytes
    std::string contents;
};

// The payload of kind KOSC_TRANSFER_FILE taken apart; false when it is none.
bool take_apart(const std::vector<uint8_t>& bytes, named_file& file);

#endif
