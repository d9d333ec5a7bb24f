// What the package's JavaScript calls for files and long text. One instance of the module serves one sender or one
// receiver, and is forgotten with it.
#include <kosc_transfer/transfer.h>

#define KOSC_EXPORT(name) __attribute__((export_name(name)))

namespace {

kosc_transfer_sender* sender;
kosc_transfer_receiver* receiver;
kosc_transfer_event_t event;
uint8_t message[KOSC_TRANSFER_MESSAGE_BYTES];

} // namespace

extern "C" {

KOSC_EXPORT("mostPayload") uint32_t kosc_js_most_payload() { return KOSC_TRANSFER_MAX_BYTES; }

// Once, before the messages; false when memory is short.
KOSC_EXPORT("sendPayload") bool kosc_js_send(const uint8_t* payload, uint32_t len, uint32_t kind, uint32_t nonce)
{
    sender = kosc_transfer_sender_init(payload, len, kind, nonce);
    return sender != nullptr;
}

KOSC_EXPORT("needed") uint32_t kosc_js_needed() { return kosc_transfer_sender_needed(sender); }

KOSC_EXPORT("round") uint32_t kosc_js_round() { return kosc_transfer_round(kosc_transfer_sender_needed(sender)); }

// Valid until the next call.
KOSC_EXPORT("transferMessage") const uint8_t* kosc_js_message(uint32_t index)
{
    kosc_transfer_sender_message(sender, index, message);
    return message;
}

// Once, before messages are taken; false when memory is short.
KOSC_EXPORT("collect") bool kosc_js_collect(uint32_t most_bytes)
{
    kosc_transfer_limits_t limits = kosc_transfer_default_limits();
    limits.payload_bytes = most_bytes;
    receiver = kosc_transfer_receiver_init(&limits);
    return receiver != nullptr;
}

// A kosc_transfer_result_t; what it says besides is in event().
KOSC_EXPORT("take") int32_t kosc_js_take(const uint8_t* taken) { return kosc_transfer_take(receiver, taken, &event); }

KOSC_EXPORT("event") const kosc_transfer_event_t* kosc_js_event() { return &event; }

} // extern "C"
