#include "collection.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace kosc_transfer {
namespace {

constexpr uint32_t FIRST_CAPACITY = 16;
constexpr uint32_t HELD_BYTES = sizeof(symbol) + sizeof(uint16_t);

uint32_t next_capacity(uint32_t capacity, uint32_t most)
{
    return std::min(std::max(2 * capacity, FIRST_CAPACITY), most);
}

} // namespace

bool held_block::has(uint32_t place) const
{
    return std::find(places.get(), places.get() + held, place) != places.get() + held;
}

bool held_block::grow(uint32_t most)
{
    const uint32_t larger = next_capacity(capacity, most);
    block_ptr<symbol> more_symbols = alloc_block<symbol>(larger);
    block_ptr<uint16_t> more_places = alloc_block<uint16_t>(larger);
    if (!more_symbols || !more_places) {
        return false;
    }
    std::copy_n(symbols.get(), held, more_symbols.get());
    std::copy_n(places.get(), held, more_places.get());
    symbols = std::move(more_symbols);
    places = std::move(more_places);
    capacity = larger;
    return true;
}

bool held_block::decode(const field& f, uint32_t n)
{
    block_ptr<symbol> sources = alloc_block<symbol>(n);
    if (!sources || !decode_block(f, n, places.get(), symbols.get(), sources.get())) {
        return false;
    }
    symbols = std::move(sources);
    places.reset();
    return true;
}

uint32_t collection::held() const
{
    uint32_t sum = 0;
    for (const held_block& block : blocks) {
        sum += block.held;
    }
    return sum;
}

uint32_t collection::bytes() const
{
    uint32_t sum = sizeof(*this);
    for (const held_block& block : blocks) {
        sum += block.capacity * HELD_BYTES;
    }
    return sum;
}

uint64_t collection::most_bytes(const layout& shape)
{
    return sizeof(collection) + uint64_t{shape.needed} * HELD_BYTES;
}

uint32_t collection::growth(uint32_t number) const
{
    const held_block& block = blocks[shape.block_of(number)];
    return block.held < block.capacity ? 0
                                       : (next_capacity(block.capacity, shape.block_len) - block.capacity) * HELD_BYTES;
}

bool collection::lacks(uint32_t number) const
{
    const held_block& block = blocks[shape.block_of(number)];
    return block.held < shape.block_len && !block.has(number / shape.blocks);
}

bool collection::add(uint32_t number, const symbol& content)
{
    held_block& block = blocks[shape.block_of(number)];
    if (block.held == block.capacity && !block.grow(shape.block_len)) {
        return false;
    }
    block.places[block.held] = static_cast<uint16_t>(number / shape.blocks);
    block.symbols[block.held] = content;
    ++block.held;
    return true;
}

bool collection::decode(const field& f)
{
    for (held_block& block : blocks) {
        if (block.held == shape.block_len && block.places && !block.decode(f, shape.block_len)) {
            return false;
        }
    }
    return true;
}

kosc_transfer_result_t collection::assemble(block_ptr<uint8_t>* payload, uint32_t* len, uint32_t* kind) const
{
    const uint32_t stream_len = SYMBOL_BYTES * shape.needed;
    block_ptr<uint8_t> stream = alloc_block<uint8_t>(stream_len);
    if (!stream) {
        return KOSC_TRANSFER_NO_MEMORY;
    }
    for (uint32_t number = 0; number < shape.needed; ++number) {
        store_symbol(stream.get() + SYMBOL_BYTES * number,
                     blocks[shape.block_of(number)].symbols[number / shape.blocks]);
    }
    const stream_prefix prefix = load_prefix(stream.get());
    uint8_t* const content = stream.get() + PREFIX_BYTES;
    uint8_t* const end = stream.get() + stream_len;
    if (prefix.len == 0 || prefix.len > KOSC_TRANSFER_MAX_BYTES || size_code_of(prefix.len) != header.size_code ||
        payload_check(content, prefix.len, prefix.kind) != prefix.check ||
        std::any_of(content + prefix.len, end, [](uint8_t padding) { return padding != 0; })) {
        return KOSC_TRANSFER_MISMATCH;
    }
    std::memmove(stream.get(), content, prefix.len);
    *payload = std::move(stream);
    *len = prefix.len;
    *kind = prefix.kind;
    return KOSC_TRANSFER_FINISHED;
}

} // namespace kosc_transfer
