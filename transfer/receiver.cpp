// Unfinished transfers side by side, within limits; finished ones remembered.
#include <algorithm>
#include <utility>

#include "collection.h"

using namespace kosc_transfer;

namespace {

constexpr kosc_transfer_limits_t DEFAULT_LIMITS = {KOSC_TRANSFER_MAX_BYTES, 4U << 20, 64, 256};

// What tells transfers apart.
uint32_t key_of(const message_header& header) { return header.id << 16 | header.size_code; }

} // namespace

struct kosc_transfer_receiver {
    field f;
    kosc_transfer_limits_t limits;
    uint64_t clock; // messages of transfers so far
    block_ptr<collection*> open;
    uint32_t open_count;
    block_ptr<uint32_t> finished; // keys, in a ring
    uint64_t finished_count;
    block_ptr<uint8_t> delivered;

    ~kosc_transfer_receiver()
    {
        while (open_count > 0) {
            drop(open[0]);
        }
    }

    // Whether the transfer has been delivered.
    bool has_finished(uint32_t key) const
    {
        const auto known = static_cast<uint32_t>(std::min<uint64_t>(finished_count, limits.finished));
        return std::find(finished.get(), finished.get() + known, key) != finished.get() + known;
    }

    bool allows(const message_header& header) const;
    collection* find(uint32_t key) const;
    uint64_t bytes() const;
    void drop(const collection* transfer);
    void make_room(uint64_t bytes_more, const collection* keep);
    collection* begin(const message_header& header);
    bool add(collection* transfer, uint32_t number, const symbol& content);
    kosc_transfer_result_t finish(collection* transfer, kosc_transfer_event_t* event);
    kosc_transfer_result_t take(const message_header& header, const symbol& content, kosc_transfer_event_t* event);
};

bool kosc_transfer_receiver::allows(const message_header& header) const
{
    return layout_of(header.size_code).needed <= layout_of(size_code_of(limits.payload_bytes)).needed &&
           collection::most_bytes(layout_of(header.size_code)) <= limits.memory_bytes;
}

collection* kosc_transfer_receiver::find(uint32_t key) const
{
    for (uint32_t i = 0; i < open_count; ++i) {
        if (key_of(open[i]->header) == key) {
            return open[i];
        }
    }
    return nullptr;
}

uint64_t kosc_transfer_receiver::bytes() const
{
    uint64_t sum = 0;
    for (uint32_t i = 0; i < open_count; ++i) {
        sum += open[i]->bytes();
    }
    return sum;
}

void kosc_transfer_receiver::drop(const collection* transfer)
{
    collection** const at = std::find(open.get(), open.get() + open_count, transfer);
    release(*at);
    *at = open[--open_count];
}

// Drops transfers until so many bytes more are within the limit, and one transfer more where none is to be kept: first
// those that have been silent for the longest in proportion to what they hold, so that neither a flood of begun
// transfers displaces one that goes on, nor large ones that were left stay for ever.
void kosc_transfer_receiver::make_room(uint64_t bytes_more, const collection* keep)
{
    const auto lasts_less = [&](const collection* one, const collection* other) {
        const auto patience = [](const collection* c) { return uint64_t{c->held()} + 1; };
        return (clock - one->heard) * patience(other) > (clock - other->heard) * patience(one);
    };
    while (bytes() + bytes_more > limits.memory_bytes || (keep == nullptr && open_count == limits.transfers)) {
        const collection* first = nullptr;
        for (uint32_t i = 0; i < open_count; ++i) {
            if (open[i] != keep && (first == nullptr || lasts_less(open[i], first))) {
                first = open[i];
            }
        }
        if (first == nullptr) {
            return;
        }
        drop(first);
    }
}

// Opens a transfer; null when memory is short.
collection* kosc_transfer_receiver::begin(const message_header& header)
{
    collection* const fresh = make<collection>();
    if (fresh != nullptr) {
        fresh->header = header;
        fresh->shape = layout_of(header.size_code);
        fresh->heard = clock;
        make_room(fresh->bytes() + fresh->growth(header.number), nullptr);
        open[open_count++] = fresh;
    }
    return fresh;
}

bool kosc_transfer_receiver::add(collection* transfer, uint32_t number, const symbol& content)
{
    make_room(transfer->growth(number), transfer);
    transfer->heard = clock;
    return transfer->add(number, content);
}

// All that is needed is there: delivers it, or begins anew.
kosc_transfer_result_t kosc_transfer_receiver::finish(collection* transfer, kosc_transfer_event_t* event)
{
    const kosc_transfer_result_t result = transfer->assemble(&delivered, &event->payload_len, &event->kind);
    if (result == KOSC_TRANSFER_FINISHED) {
        event->payload = delivered.get();
        if (limits.finished != 0) {
            finished[static_cast<uint32_t>(finished_count++ % limits.finished)] = key_of(transfer->header);
        }
    }
    if (result == KOSC_TRANSFER_MISMATCH) {
        event->held = 0;
    }
    if (result != KOSC_TRANSFER_NO_MEMORY) {
        drop(transfer);
    }
    return result;
}

kosc_transfer_result_t kosc_transfer_receiver::take(const message_header& header, const symbol& content,
                                                    kosc_transfer_event_t* event)
{
    ++clock;
    event->id = header.id;
    event->needed = layout_of(header.size_code).needed;
    if (has_finished(key_of(header))) {
        event->held = event->needed;
        return KOSC_TRANSFER_REPEATED;
    }
    if (!allows(header)) {
        return KOSC_TRANSFER_REFUSED;
    }
    collection* transfer = find(key_of(header));
    transfer = transfer != nullptr ? transfer : begin(header);
    if (transfer == nullptr) {
        return KOSC_TRANSFER_NO_MEMORY;
    }
    const bool lacked = transfer->lacks(header.number);
    const bool added = !lacked || add(transfer, header.number, content);
    event->held = transfer->held();
    if (!added || !transfer->decode(f)) {
        return KOSC_TRANSFER_NO_MEMORY;
    }
    if (event->held == event->needed) {
        return finish(transfer, event);
    }
    return lacked ? KOSC_TRANSFER_PROGRESS : KOSC_TRANSFER_REPEATED;
}

kosc_transfer_limits_t kosc_transfer_default_limits(void) { return DEFAULT_LIMITS; }

kosc_transfer_receiver* kosc_transfer_receiver_init(const kosc_transfer_limits_t* limits)
{
    record_ptr<kosc_transfer_receiver> receiver{make<kosc_transfer_receiver>()};
    if (!receiver || (limits != nullptr && limits->transfers == 0)) {
        return nullptr;
    }
    receiver->limits = limits != nullptr ? *limits : DEFAULT_LIMITS;
    receiver->limits.payload_bytes = std::min<uint32_t>(receiver->limits.payload_bytes, KOSC_TRANSFER_MAX_BYTES);
    receiver->open = alloc_block<collection*>(receiver->limits.transfers);
    receiver->finished = alloc_block<uint32_t>(receiver->limits.finished);
    return receiver->open && receiver->finished ? receiver.release() : nullptr;
}

void kosc_transfer_receiver_free(kosc_transfer_receiver* receiver) { release(receiver); }

kosc_transfer_result_t kosc_transfer_take(kosc_transfer_receiver* receiver, const uint8_t* message,
                                          kosc_transfer_event_t* event)
{
    kosc_transfer_event_t unused;
    kosc_transfer_event_t* const told = event != nullptr ? event : &unused;
    *told = {};
    if (receiver == nullptr || message == nullptr) {
        return KOSC_TRANSFER_INVALID;
    }
    receiver->delivered.reset();
    message_header header;
    return read_message(message, &header) ? receiver->take(header, load_symbol(message + HEADER_BYTES), told)
                                          : KOSC_TRANSFER_PLAIN;
}
