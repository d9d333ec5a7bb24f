// How often a combiner delivers what nobody sent, when a sender changes its message a little from frame to frame.
//
// Frames are made as received subcarriers of a random channel in white noise, with their drift known: the search, which
// has no say in which bits are delivered, is left out, and a hundred thousand groups take minutes.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <future>
#include <vector>

#include "channels.h"
#include "combine/combiner.h"
#include "kosc/kosc.hpp"

using namespace kosc;

namespace {

using kosc_link::random_source;

enum change { COUNTER, TIME_STAMP, ONE_BYTE, ONE_HALF, FOUR_BYTES, CHANGES };
const char* const NAMES[] = {"counter, a byte in each half", "time stamp, two bytes of the first half", "any one byte",
                             "one half", "four bytes"};

struct message {
    uint8_t bytes[WEAK_MSG_LEN];
};

void make_messages(change kind, uint32_t count, random_source* random, message* all)
{
    for (uint8_t& byte : all[0].bytes) {
        byte = static_cast<uint8_t>(random->bits() >> 56);
    }
    for (uint32_t i = 1; i < count; ++i) {
        all[i] = all[i - 1];
        uint8_t* const b = all[i].bytes;
        switch (kind) {
        case COUNTER:
            ++b[13];
            ++b[27];
            break;
        case TIME_STAMP:
            b[7] = static_cast<uint8_t>(b[7] + 1);
            b[6] = static_cast<uint8_t>(b[6] + (random->bits() & 1));
            b[20] = static_cast<uint8_t>(b[20] + 1 + random->bits() % 3); // and a value in the second
            break;
        case ONE_BYTE:
            b[random->bits() % WEAK_MSG_LEN] ^= static_cast<uint8_t>(1 + random->bits() % 255);
            break;
        case ONE_HALF:
            for (uint32_t k = 0; k < WEAK_MSG_LEN / 2; ++k) {
                b[k + (i % 2) * WEAK_MSG_LEN / 2] = static_cast<uint8_t>(random->bits() >> 56);
            }
            break;
        default:
            for (const uint32_t k : {5, 9, 20, 25}) {
                b[k] ^= static_cast<uint8_t>(1 + random->bits() % 255);
            }
            break;
        }
    }
}

// One echo more than the direct sound, as a room has.
void receive(const message& sent, double snr, random_source* random, combiner_t* c, weak_frame* frame)
{
    weak_frame_maker* const maker = maker_of(c);
    send_message(sent.bytes, c);
    double* const received = maker->channel.received;
    const double delay = 100 * random->uniform();
    const double turn = 2 * kosc_link::PI * random->uniform();
    const double level = 0.6 * random->uniform();
    const double noise = std::sqrt((1 + level * level) / snr / 2);
    for (uint32_t i = 0; i < WEAK_SYMBOLS; ++i) {
        for (uint32_t k = 0; k < WEAK_SC_NUM; ++k) {
            const size_t at = i * WEAK_SC_NUM + k;
            const double angle = turn - 2 * kosc_link::PI * k * delay / WEAK_SYMBOL_LEN;
            const kom_complex h = {1 + level * std::cos(angle), level * std::sin(angle)};
            const kom_complex n = {noise * random->gaussian(), noise * random->gaussian()};
            store(received, at, load(maker->sent, at) * h + n);
        }
    }
    frame->rate = 100e-6 * random->gaussian();
    frame->coherence = 0.2;
    take_received(maker, frame);
}

struct tally {
    const message* sent;
    uint32_t count;
    uint64_t joined;  // right ones of more than one frame
    uint64_t mixed;   // wrong ones: halves of two messages
    uint64_t neither; // wrong ones: a half that nobody sent
    uint64_t refused;
};

bool was_sent(const tally& t, const uint8_t* bytes, uint32_t first, uint32_t count)
{
    return std::any_of(t.sent, t.sent + t.count,
                       [&](const message& m) { return std::memcmp(m.bytes + first, bytes + first, count) == 0; });
}

void judge(const recovered_message& message, void* user)
{
    constexpr uint32_t HALF = WEAK_MSG_LEN / 2;
    tally* const t = static_cast<tally*>(user);
    if (was_sent(*t, message.msg, 0, WEAK_MSG_LEN)) {
        t->joined += message.report.frames > 1 ? 1 : 0;
    } else if (was_sent(*t, message.msg, 0, HALF) && was_sent(*t, message.msg, HALF, HALF)) {
        ++t->mixed;
    } else {
        ++t->neither;
    }
}

// Until so many groups were delivered whose messages differ in one way.
tally run(change kind, uint64_t groups, uint64_t seed)
{
    tally t{};
    random_source random{seed};
    const kosc::context_ptr ctx{soundcomm_init(soundcomm_default_cfg(), soundcomm_default_cfg())};
    combiner_t* const c = ctx ? make_combiner(*ctx->rx_paras, 1) : nullptr;
    while (c != nullptr && t.joined + t.mixed + t.neither < groups) {
        constexpr uint32_t FRAMES = 12;
        message sent[4];
        t.count = 2 + random.bits() % 3;
        t.sent = sent;
        make_messages(kind, t.count, &random, sent);
        const double snr = std::pow(10.0, (-2 - 5 * random.uniform()) / 10);
        const bool in_turn = (random.bits() & 1) != 0; // else each two or three times, then the next
        restart_combiner(c);
        for (uint32_t n = 0; n < FRAMES; ++n) {
            weak_frame frame{};
            frame.start = 15120.0 * n;
            const uint32_t which = in_turn ? n % t.count : n * t.count / FRAMES;
            receive(sent[which], snr * std::pow(10.0, 0.1 * random.gaussian()), &random, c, &frame);
            take_frame_heard(&frame, 1, judge, &t, c);
        }
    }
    t.refused = c != nullptr ? counts_of(*c).refused : 0;
    free_combiner(c);
    return t;
}

} // namespace

// mixture_bench GROUPS [SEED [SLICES]]: until so many groups were delivered, of each change. Slices run at once, each
// with a seed of its own.
int main(int argc, char** argv)
{
    log_level = 0;
    const auto argument = [&](int i, uint64_t otherwise) {
        return argc > i ? std::strtoull(argv[i], nullptr, 10) : otherwise;
    };
    const uint64_t groups = argument(1, 1000);
    const uint64_t seed = argument(2, 1);
    const uint64_t slices = std::max<uint64_t>(argument(3, 1), 1);
    std::printf(
        "| messages differ by | groups delivered | mixtures | otherwise wrong | refused |\n|---|---|---|---|---|\n");
    for (int kind = 0; kind < CHANGES; ++kind) {
        std::vector<std::future<tally>> parts;
        for (uint64_t n = 0; n < slices; ++n) {
            parts.push_back(std::async(std::launch::async, run, static_cast<change>(kind),
                                       (groups + slices - 1) / slices, (seed * slices + n) * CHANGES + kind));
        }
        tally sum{};
        for (auto& part : parts) {
            const tally t = part.get();
            sum.joined += t.joined;
            sum.mixed += t.mixed;
            sum.neither += t.neither;
            sum.refused += t.refused;
        }
        std::printf("| %s | %llu | %llu | %llu | %llu |\n", NAMES[kind],
                    static_cast<unsigned long long>(sum.joined + sum.mixed + sum.neither),
                    static_cast<unsigned long long>(sum.mixed), static_cast<unsigned long long>(sum.neither),
                    static_cast<unsigned long long>(sum.refused));
        std::fflush(stdout);
    }
    return 0;
}
