// A payload, cut into symbols, and the messages that are made of them.
#include "cauchy_code.h"
#include "memory.h"
#include "message.h"

using namespace kosc_transfer;

struct kosc_transfer_sender {
    field f;
    layout shape;
    message_header header;
    block_ptr<symbol> symbols; // block by block
    block_ptr<uint16_t> places;
};

namespace {

// The part of the stream that begins at `at`: prefix, payload, zeros.
symbol cut_symbol(const uint8_t* prefix, const uint8_t* payload, uint32_t len, uint32_t at)
{
    uint8_t bytes[SYMBOL_BYTES] = {};
    for (uint32_t i = 0; i < SYMBOL_BYTES && at + i < PREFIX_BYTES + len; ++i) {
        bytes[i] = at + i < PREFIX_BYTES ? prefix[at + i] : payload[at + i - PREFIX_BYTES];
    }
    return load_symbol(bytes);
}

void cut_payload(kosc_transfer_sender* sender, const uint8_t* payload, uint32_t len, uint32_t kind, uint64_t check)
{
    uint8_t prefix[PREFIX_BYTES];
    store_prefix(prefix, {len, kind, check});
    const layout& shape = sender->shape;
    for (uint32_t number = 0; number < shape.needed; ++number) {
        const uint32_t place = number / shape.blocks;
        sender->symbols[shape.block_of(number) * shape.block_len + place] =
            cut_symbol(prefix, payload, len, SYMBOL_BYTES * number);
    }
    for (uint32_t i = 0; i < shape.block_len; ++i) {
        sender->places[i] = static_cast<uint16_t>(i);
    }
}

} // namespace

kosc_transfer_sender* kosc_transfer_sender_init(const uint8_t* payload, uint32_t len, uint32_t kind, uint32_t nonce)
{
    if (payload == nullptr || len == 0 || len > KOSC_TRANSFER_MAX_BYTES || kind > UINT8_MAX) {
        return nullptr;
    }
    record_ptr<kosc_transfer_sender> sender{make<kosc_transfer_sender>()};
    if (!sender) {
        return nullptr;
    }
    const uint64_t check = payload_check(payload, len, kind);
    sender->header = {transfer_id(check, nonce), size_code_of(len), 0};
    sender->shape = layout_of(sender->header.size_code);
    sender->symbols = alloc_block<symbol>(sender->shape.needed);
    sender->places = alloc_block<uint16_t>(sender->shape.block_len);
    if (!sender->symbols || !sender->places) {
        return nullptr;
    }
    cut_payload(sender.get(), payload, len, kind, check);
    return sender.release();
}

void kosc_transfer_sender_free(kosc_transfer_sender* sender) { release(sender); }

uint32_t kosc_transfer_sender_needed(const kosc_transfer_sender* sender)
{
    return sender != nullptr ? sender->shape.needed : 0;
}

bool kosc_transfer_sender_message(const kosc_transfer_sender* sender, uint32_t index, uint8_t* message)
{
    if (sender == nullptr || message == nullptr) {
        return false;
    }
    const layout& shape = sender->shape;
    const uint32_t number = index % shape.period();
    const uint32_t place = number / shape.blocks;
    const symbol* const block = sender->symbols.get() + shape.block_of(number) * shape.block_len;
    write_message(message, {sender->header.id, sender->header.size_code, number},
                  place < shape.block_len ? block[place]
                                          : cauchy_sum(sender->f, place, sender->places.get(), block, shape.block_len));
    return true;
}
