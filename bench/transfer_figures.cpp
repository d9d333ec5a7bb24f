// What the transfer layer costs and wastes, for docs/transfer.md: for each size of payload and share of messages lost,
// how many messages above the needed ones a receiver took, and the processor time of sending and of receiving them, the
// least of all trials, since other work on the machine only adds to it.
//
//   transfer_figures [TRIALS [BYTES]]      of each setting, 20, a twentieth of it for 1 MiB; the largest payload
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <random>
#include <vector>

#include "kosc_transfer/transfer.h"

namespace {

using bytes = std::vector<uint8_t>;

struct release {
    void operator()(kosc_transfer_sender* sender) const { kosc_transfer_sender_free(sender); }
    void operator()(kosc_transfer_receiver* receiver) const { kosc_transfer_receiver_free(receiver); }
};

class stopwatch {
public:
    void start() { begun_ = std::clock(); }
    void stop() { ticks_ += std::clock() - begun_; }
    double seconds() const { return static_cast<double>(ticks_) / CLOCKS_PER_SEC; }

private:
    std::clock_t begun_ = 0;
    std::clock_t ticks_ = 0;
};

struct figures {
    uint32_t needed = 0;
    uint32_t sent = 0;
    uint32_t taken = 0;
    double sending = 0, receiving = 0;
};

// One transfer through a channel that loses messages; the messages are counted from `start` on.
figures run(const bytes& payload, uint32_t nonce, uint32_t start, double loss, std::mt19937* random)
{
    figures result;
    stopwatch sending, receiving;
    sending.start();
    const std::unique_ptr<kosc_transfer_sender, release> sender{
        kosc_transfer_sender_init(payload.data(), static_cast<uint32_t>(payload.size()), KOSC_TRANSFER_BYTES, nonce)};
    sending.stop();
    receiving.start();
    const std::unique_ptr<kosc_transfer_receiver, release> receiver{kosc_transfer_receiver_init(nullptr)};
    receiving.stop();
    result.needed = kosc_transfer_sender_needed(sender.get());
    std::uniform_real_distribution<double> share{0, 1};
    uint8_t message[KOSC_TRANSFER_MESSAGE_BYTES];
    kosc_transfer_event_t event;
    kosc_transfer_result_t what = KOSC_TRANSFER_PROGRESS;
    while (what != KOSC_TRANSFER_FINISHED) {
        if (what < 0 || what == KOSC_TRANSFER_MISMATCH) {
            std::fprintf(stderr, "a transfer failed\n");
            std::exit(EXIT_FAILURE);
        }
        sending.start();
        kosc_transfer_sender_message(sender.get(), start + result.sent++, message);
        sending.stop();
        if (share(*random) >= loss) {
            receiving.start();
            what = kosc_transfer_take(receiver.get(), message, &event);
            receiving.stop();
            ++result.taken;
        }
    }
    if (event.payload_len != payload.size() || !std::equal(payload.begin(), payload.end(), event.payload)) {
        std::fprintf(stderr, "a transfer came out wrong\n");
        std::exit(EXIT_FAILURE);
    }
    result.sending = sending.seconds();
    result.receiving = receiving.seconds();
    return result;
}

void tell(uint32_t len, double loss, uint32_t start, uint32_t trials)
{
    std::mt19937 random{len + static_cast<uint32_t>(100 * loss)};
    double taken = 0, sent = 0, sending = HUGE_VAL, receiving = HUGE_VAL;
    uint32_t most = 0, needed = 0;
    for (uint32_t i = 0; i < trials; ++i) {
        bytes payload(len);
        std::generate(payload.begin(), payload.end(), [&] { return static_cast<uint8_t>(random()); });
        const figures one = run(payload, i, start, loss, &random);
        needed = one.needed;
        taken += one.taken;
        sent += one.sent;
        most = std::max(most, one.taken);
        sending = std::min(sending, one.sending);
        receiving = std::min(receiving, one.receiving);
    }
    std::printf("%8u %6u %7u %4.0f %% %9.1f %7.2f %% %7.2f %% %9.4f %9.4f\n", len, start, needed, 100 * loss,
                sent / trials, 100 * (taken / trials / needed - 1), 100.0 * (most - needed) / needed, sending,
                receiving);
}

} // namespace

int main(int argc, char** argv)
{
    const uint32_t trials = argc > 1 ? static_cast<uint32_t>(std::max(1, std::atoi(argv[1]))) : 20;
    const uint32_t largest = argc > 2 ? static_cast<uint32_t>(std::atoi(argv[2])) : uint32_t{KOSC_TRANSFER_MAX_BYTES};
    std::printf("   bytes  start  needed   loss  messages sent   overhead: mean, most   seconds: send, receive\n");
    for (const uint32_t len : {20U, 1024U, 4096U, 65536U, 330000U, 1048576U}) {
        if (len > largest) {
            break;
        }
        const uint32_t tries = len > 1000000 ? (trials + 19) / 20 : trials;
        for (const double loss : {0.0, 0.2, 0.5}) {
            tell(len, loss, 0, tries);
        }
        tell(len, 0, 60000, tries); // a late receiver, which hears repair messages alone
    }
}
