// What a receiver holds of one transfer.
#ifndef KOSC_TRANSFER_COLLECTION_H
#define KOSC_TRANSFER_COLLECTION_H

#include <cstdint>

#include "cauchy_code.h"
#include "memory.h"
#include "message.h"

namespace kosc_transfer {

// The symbols of one block, in the order in which they came; once it is decoded, its source symbols.
struct held_block {
    block_ptr<symbol> symbols;
    block_ptr<uint16_t> places; // null once it is decoded
    uint32_t held;
    uint32_t capacity;

    bool has(uint32_t place) const;
    bool grow(uint32_t most);
    bool decode(const field& f, uint32_t n);
};

struct collection {
    message_header header; // of its latest message
    layout shape;
    uint64_t heard; // the receiver's count of messages when it last came further
    held_block blocks[MAX_BLOCKS];

    uint32_t held() const;
    uint32_t bytes() const;
    static uint64_t most_bytes(const layout& shape);

    // By how many bytes the collection grows if it takes the symbol of this number.
    uint32_t growth(uint32_t number) const;

    // Whether the symbol of this number brings the transfer further.
    bool lacks(uint32_t number) const;

    // Takes a symbol that is lacked; false when memory is short.
    bool add(uint32_t number, const symbol& content);

    // Decodes blocks that are full; false when memory is short.
    bool decode(const field& f);

    // Puts the decoded stream together and checks it: KOSC_TRANSFER_FINISHED, _MISMATCH or _NO_MEMORY.
    kosc_transfer_result_t assemble(block_ptr<uint8_t>* payload, uint32_t* len, uint32_t* kind) const;
};

} // namespace kosc_transfer

#endif
