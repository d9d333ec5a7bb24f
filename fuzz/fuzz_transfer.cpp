// What a receiver of transfers can be handed: the input is a list of steps that hand it messages of known transfers in
// any order, changed ones, forged ones with right headers, and raw bytes, under any limits, while allocations fail.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "failing_malloc.h"
#include "input.h"
#include "message.h"
#include "owned.h"

namespace {

using bytes = std::vector<uint8_t>;
using sender_ptr = owned<kosc_transfer_sender, kosc_transfer_sender_free>;
using receiver_ptr = owned<kosc_transfer_receiver, kosc_transfer_receiver_free>;

constexpr uint32_t SENDERS = 5;
constexpr uint32_t LENGTHS[SENDERS] = {1, 40, 300, 300, 6000};
constexpr uint32_t LAST = 2; // is sent once more, as another transfer, when all else is over
constexpr uint32_t LAST_NONCE = 77;
constexpr uint32_t MOST_MESSAGES = 3000; // of one input

struct known_transfer {
    bytes payload;
    sender_ptr sender;
    uint32_t id, size_code;

    known_transfer(uint32_t which, uint32_t nonce) : payload(LENGTHS[which])
    {
        for (size_t i = 0; i < payload.size(); ++i) {
            payload[i] = static_cast<uint8_t>(37 * i * i + 11 * i + which);
        }
        const auto len = static_cast<uint32_t>(payload.size());
        sender.reset(kosc_transfer_sender_init(payload.data(), len, which, nonce));
        kosc_transfer_header_t header;
        uint8_t message[KOSC_TRANSFER_MESSAGE_BYTES];
        FUZZ_CHECK(kosc_transfer_sender_message(sender.get(), 0, message));
        FUZZ_CHECK(kosc_transfer_read_header(message, &header));
        id = header.id;
        size_code = kosc_transfer::size_code_of(len);
    }

    void message(uint32_t index, uint8_t* to) const { kosc_transfer_sender_message(sender.get(), index, to); }
};

const known_transfer& known(uint32_t which)
{
    static const std::vector<known_transfer> all = [] {
        std::vector<known_transfer> made;
        for (uint32_t i = 0; i < SENDERS; ++i) {
            made.emplace_back(i, 0U);
        }
        return made;
    }();
    return all[which % SENDERS];
}

struct listener {
    receiver_ptr receiver{kosc_transfer_receiver_init(nullptr)};
    bool default_limits = true;
    uint32_t messages = 0;
    kosc_transfer_event_t event{};

    kosc_transfer_result_t take(const uint8_t* message)
    {
        ++messages;
        const bytes copy(message, message + KOSC_TRANSFER_MESSAGE_BYTES); // to see reads past its end
        const kosc_transfer_result_t result = kosc_transfer_take(receiver.get(), copy.data(), &event);
        FUZZ_CHECK(result != KOSC_TRANSFER_INVALID && event.held <= event.needed);
        FUZZ_CHECK(result != KOSC_TRANSFER_NO_MEMORY || allocation_failed());
        FUZZ_CHECK((result == KOSC_TRANSFER_FINISHED) == (event.payload != nullptr));
        if (result == KOSC_TRANSFER_FINISHED) { // only what somebody sent: the check has 64 bits
            FUZZ_CHECK(event.kind < SENDERS && event.payload_len == LENGTHS[event.kind]);
            FUZZ_CHECK(std::memcmp(event.payload, known(event.kind).payload.data(), event.payload_len) == 0);
        }
        return result;
    }

    // Messages of a known transfer, some way apart.
    void play(fuzz_input* in)
    {
        const known_transfer& from = known(in->byte());
        uint32_t index = in->take<uint16_t>();
        const uint32_t step = in->byte();
        for (uint32_t left = 1 + 2 * in->byte(); left > 0 && messages < MOST_MESSAGES; --left, index += step) {
            uint8_t message[KOSC_TRANSFER_MESSAGE_BYTES];
            from.message(index, message);
            take(message);
        }
    }

    void play_changed(fuzz_input* in)
    {
        uint8_t message[KOSC_TRANSFER_MESSAGE_BYTES];
        known(in->byte()).message(in->take<uint16_t>(), message);
        message[in->byte() % sizeof(message)] ^= in->byte();
        take(message);
    }

    // Messages in a row with right headers and one content; of a known transfer, or of one that nobody sent.
    void forge(fuzz_input* in)
    {
        const uint32_t which = in->byte();
        const bool is_known = which < 128;
        const uint32_t id = is_known ? known(which).id : in->take<uint16_t>();
        const uint32_t code = is_known ? known(which).size_code : in->take<uint16_t>() % 2048;
        const uint32_t number = in->take<uint32_t>();
        const bytes content = in->bytes(KOSC_TRANSFER_CONTENT_BYTES);
        for (uint32_t i = 0, count = in->byte(); i <= count && messages < MOST_MESSAGES; ++i) {
            uint8_t message[KOSC_TRANSFER_MESSAGE_BYTES];
            kosc_transfer::write_message(message, {is_known ? id : (id + i) % 65536, code, (number + i) % 262144},
                                         kosc_transfer::load_symbol(content.data()));
            take(message);
        }
    }

    void begin_anew(fuzz_input* in)
    {
        const kosc_transfer_limits_t limits = {in->argument(), in->argument(), in->argument() % 4096,
                                               in->argument() % 4096};
        receiver_ptr made{kosc_transfer_receiver_init(&limits)};
        FUZZ_CHECK(made || limits.transfers == 0 || allocation_failed());
        if (made) {
            receiver = std::move(made);
            default_limits = false;
        }
    }

    void step(fuzz_input* in)
    {
        switch (in->byte() % 8) {
        case 0:
            take(in->bytes(KOSC_TRANSFER_MESSAGE_BYTES).data());
            break;
        case 1:
            play_changed(in);
            break;
        case 2:
        case 3:
            forge(in);
            break;
        case 4:
            begin_anew(in);
            break;
        default:
            play(in);
        }
    }

    // Whatever went before, a transfer that nobody touched is received; a collision costs it one beginning.
    void finish()
    {
        static const known_transfer last{LAST, LAST_NONCE};
        const uint32_t needed = kosc_transfer_sender_needed(last.sender.get());
        bool whole = false;
        for (uint32_t i = 0; i <= 2 * needed && !whole; ++i) {
            uint8_t message[KOSC_TRANSFER_MESSAGE_BYTES];
            last.message(i, message);
            whole = take(message) == KOSC_TRANSFER_FINISHED;
        }
        FUZZ_CHECK(whole);
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    known(0);
    listener heard;
    fuzz_input in{data, size};
    const bool fails = in.byte() % 2 != 0;
    fail_allocations(&in, fails);
    while (in.more() && heard.messages < MOST_MESSAGES) {
        heard.step(&in);
    }
    allow_allocations();
    if (heard.default_limits) {
        heard.finish();
    }
    return 0;
}
