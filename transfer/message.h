// The form of a message, and of the stream of bytes that a payload becomes; docs/transfer.md draws both.
#ifndef KOSC_TRANSFER_MESSAGE_H
#define KOSC_TRANSFER_MESSAGE_H

#include <cstdint>

#include "field.h"
#include "kosc_transfer/transfer.h"

namespace kosc_transfer {

constexpr uint32_t HEADER_BYTES = 8;
constexpr uint32_t PREFIX_BYTES = 12; // of the stream: length, kind, check; then the payload, then zeros
constexpr uint32_t MAX_BLOCKS = 4;

static_assert(HEADER_BYTES + SYMBOL_BYTES == KOSC_TRANSFER_MESSAGE_BYTES, "a message is a header and a symbol");
static_assert(SYMBOL_BYTES == KOSC_TRANSFER_CONTENT_BYTES, "a symbol is the content");

// What a message's header says.
struct message_header {
    uint32_t id;
    uint32_t size_code;
    uint32_t number;
};

// A transfer's messages, which only depend on its size code.
struct layout {
    uint32_t needed;
    uint32_t blocks; // 1, 2 or 4, each coded by itself
    uint32_t block_len;

    uint32_t period() const { return blocks * FIELD_SIZE; }

    // The block that a number belongs to; its place there is number / blocks. Each run of `blocks` numbers has one of
    // each block, in an order that changes from run to run, so that no periodic loss meets one block alone.
    uint32_t block_of(uint32_t number) const;
};

// The layout behind a size code; `needed` is 0 for codes that stand for none.
layout layout_of(uint32_t size_code);

// The size code of a payload of 1 to KOSC_TRANSFER_MAX_BYTES bytes.
uint32_t size_code_of(uint32_t payload_len);

// What stands in the stream before the payload.
struct stream_prefix {
    uint32_t len;
    uint32_t kind;
    uint64_t check;
};

stream_prefix load_prefix(const uint8_t* bytes);
void store_prefix(uint8_t* bytes, const stream_prefix& prefix);

// The whole-payload check, which covers length and kind too.
uint64_t payload_check(const uint8_t* payload, uint32_t len, uint32_t kind);

// The 16 bits that a check and a nonce give.
uint32_t transfer_id(uint64_t check, uint32_t nonce);

void write_message(uint8_t* message, const message_header& header, const symbol& content);

// False where the message is none of a transfer.
bool read_message(const uint8_t* message, message_header* header);

} // namespace kosc_transfer

#endif
