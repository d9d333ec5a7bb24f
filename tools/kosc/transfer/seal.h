// Payloads that only holders of a key read and make; docs/transfer.md has the form.
#ifndef KOSC_TOOL_SEAL_H
#define KOSC_TOOL_SEAL_H

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "transfer/payload.h"

// Where a key comes from; nothing given: there is none.
struct key_options {
    std::string key_file;
    std::string phrase_file; // STANDARD_STREAM: standard input
    bool ask = false;        // for a pass phrase, on the terminal
};

constexpr size_t KEY_BYTES = 32;
constexpr size_t SEAL_BYTES = 49; // that a seal adds: nonce, tag, time, kind

// A key, which is cleared when it is no longer needed.
class secret_key {
public:
    secret_key() = default;
    ~secret_key();
    secret_key(const secret_key&) = default;
    secret_key& operator=(const secret_key&) = default;

    std::array<uint8_t, KEY_BYTES> bytes{};
};

// The key that the options ask for. Throws when it cannot be read, is none, or memory for a pass phrase is short.
std::optional<secret_key> key_of(const key_options& options, bool twice = false);

// Writes a new key, 64 hexadecimal digits, into a file that only its owner reads. Throws when there is one already.
void make_key_file(const std::string& path);

// `time` is that of now, in seconds since 1970.
payload seal(const payload& content, const secret_key& key, uint64_t time);

// Opens sealed payloads, each once.
class seal_opener {
public:
    // `window`: seconds by which a payload's time may differ from now; 0: any.
    seal_opener(const secret_key& key, double window) : key_(key), window_(window) {}

    // The content; or why it is refused, in `reason`.
    std::optional<payload> open(const payload& sealed, uint64_t now, std::string& reason);

private:
    void forget(uint64_t now);

    secret_key key_;
    double window_;
    std::map<std::vector<uint8_t>, uint64_t> taken_; // nonces and their times
};

#endif
