// Transfers whole: payload in, messages through a channel that loses, repeats, mixes and forges them, payload out.
#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <vector>

#include "message.h"

#ifdef _WIN32
#define malloc_usable_size _msize
#endif

namespace {

struct {
    bool on;
    uint32_t asked, failing; // counted from 1 on; 0: none fails
    size_t live, most;       // bytes
} heap;

bool must_fail() { return heap.on && ++heap.asked == heap.failing; }

void* counted(void* block)
{
    heap.live += heap.on ? malloc_usable_size(block) : 0;
    heap.most = std::max(heap.most, heap.live);
    return block;
}

} // namespace

extern "C" {
void* __real_malloc(size_t);
void* __real_calloc(size_t, size_t);
void __real_free(void*);
void* __wrap_malloc(size_t size) { return must_fail() ? nullptr : counted(__real_malloc(size)); }
// What clang makes of malloc() and memset().
void* __wrap_calloc(size_t count, size_t size) { return must_fail() ? nullptr : counted(__real_calloc(count, size)); }
void __wrap_free(void* block)
{
    heap.live -= heap.on && block != nullptr ? malloc_usable_size(block) : 0;
    __real_free(block);
}
}

namespace {

using bytes = std::vector<uint8_t>;
using message = std::array<uint8_t, KOSC_TRANSFER_MESSAGE_BYTES>;

struct releaser {
    void operator()(kosc_transfer_sender* sender) const { kosc_transfer_sender_free(sender); }
    void operator()(kosc_transfer_receiver* receiver) const { kosc_transfer_receiver_free(receiver); }
};

bytes random_bytes(uint32_t len, uint32_t seed)
{
    std::mt19937 random{seed};
    bytes made(len);
    std::generate(made.begin(), made.end(), [&] { return static_cast<uint8_t>(random() >> 24); });
    return made;
}

struct sender {
    bytes payload;
    std::unique_ptr<kosc_transfer_sender, releaser> handle;
    uint32_t needed;

    explicit sender(bytes content, uint32_t kind = KOSC_TRANSFER_BYTES, uint32_t nonce = 0)
        : payload(std::move(content)),
          handle(kosc_transfer_sender_init(payload.data(), static_cast<uint32_t>(payload.size()), kind, nonce)),
          needed(kosc_transfer_sender_needed(handle.get()))
    {
    }

    message at(uint32_t index) const
    {
        message made{};
        EXPECT_TRUE(kosc_transfer_sender_message(handle.get(), index, made.data()));
        return made;
    }
};

struct receiver {
    std::unique_ptr<kosc_transfer_receiver, releaser> handle;
    kosc_transfer_event_t event{};
    std::vector<bytes> delivered{};
    uint32_t kind = 0; // of the last one

    explicit receiver(const kosc_transfer_limits_t* limits = nullptr) : handle(kosc_transfer_receiver_init(limits)) {}

    kosc_transfer_result_t take(const message& one)
    {
        const kosc_transfer_result_t result = kosc_transfer_take(handle.get(), one.data(), &event);
        EXPECT_EQ(result == KOSC_TRANSFER_FINISHED, event.payload != nullptr);
        if (result == KOSC_TRANSFER_FINISHED) {
            kind = event.kind;
            delivered.emplace_back(event.payload, event.payload + event.payload_len);
        }
        return result;
    }
};

// A message whose header is right, whatever it says.
message forge(uint32_t id, uint32_t size_code, uint32_t number, const kosc_transfer::symbol& content)
{
    message made;
    kosc_transfer::write_message(made.data(), {id, size_code, number}, content);
    return made;
}

kosc_transfer_header_t header_of(const message& one)
{
    kosc_transfer_header_t header{};
    EXPECT_TRUE(kosc_transfer_read_header(one.data(), &header));
    return header;
}

TEST(Transfer, KeepsToTheKnownAnswers)
{
    const auto vectors = nlohmann::json::parse(std::ifstream{KOSC_TEST_VECTORS "/transfer.json"});
    const auto unhex = [](const std::string& text) {
        bytes made;
        for (size_t i = 0; i < text.size(); i += 2) {
            made.push_back(static_cast<uint8_t>(std::stoul(text.substr(i, 2), nullptr, 16)));
        }
        return made;
    };
    for (const auto& one : vectors["transfers"]) {
        SCOPED_TRACE(one["name"].get<std::string>());
        bytes payload(one["length"].get<size_t>());
        for (size_t i = 0; i < payload.size(); ++i) {
            payload[i] = static_cast<uint8_t>(i * i + 7 * i);
        }
        const sender from{payload, one["kind"], one["nonce"]};
        EXPECT_EQ(from.needed, one["needed"]);
        receiver to;
        for (const auto& known : one["messages"]) {
            const message made = from.at(known["index"]);
            EXPECT_EQ(bytes(made.begin(), made.end()), unhex(known["hex"])) << known["index"];
            const kosc_transfer_header_t header = header_of(made);
            EXPECT_EQ(header.id, one["id"]);
            EXPECT_EQ(header.needed, one["needed"]);
            EXPECT_EQ(header.number, known["index"].get<uint32_t>() % header.period);
            to.take(made);
        }
        if (one["messages"].size() >= from.needed) {
            EXPECT_EQ(to.delivered, std::vector<bytes>{payload});
            EXPECT_EQ(to.kind, one["kind"]);
        }
    }
}

TEST(Transfer, Carries4KiBThroughLossesInEachOf1000Trials)
{
    for (const auto& [loss, rounds] : {std::pair{0.2, 1U}, std::pair{0.5, 2U}}) {
        uint32_t whole = 0;
        for (uint32_t seed = 0; seed < 1000; ++seed) {
            const sender from{random_bytes(4096, seed)};
            receiver to;
            std::mt19937 random{seed};
            std::bernoulli_distribution lost{loss};
            for (uint32_t i = 0; i < rounds * kosc_transfer_round(from.needed); ++i) {
                ASSERT_GE(lost(random) ? KOSC_TRANSFER_PLAIN : to.take(from.at(i)), KOSC_TRANSFER_PLAIN);
            }
            whole += to.delivered == std::vector<bytes>{from.payload} ? 1 : 0;
        }
        EXPECT_EQ(whole, 1000U) << loss;
    }
}

// Which messages arrive: from `start` on every `step`-th of those that a loss at random leaves.
TEST(Transfer, NeedsHardlyMoreMessagesThanItsPayloadFills)
{
    struct {
        uint32_t len, fill, start, step;
        double loss;
    } const cases[] = {
        {1, 1, 0, 1, 0},
        {8, 1, 77, 1, 0},         // as much as one message holds
        {9, 2, 65535, 1, 0.5},    // around the end of the sequence
        {1024, 52, 30, 1, 0},     // begins in the middle
        {5068, 254, 100, 6, 0.3}, // one band of six
        {5088, 255, 65000, 1, 0},
        {5089, 256, 0, 1, 0.5},
        {40001, 2001, 4321, 7, 0.9},
        {65536, 3278, 1000, 1, 0.2},
        {330000, 16501, 0, 1, 0.2},  // two blocks
        {330000, 16501, 10, 6, 0},   // of which a dead band must not starve one
        {1048576, 52430, 0, 1, 0.1}, // four
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.len << " bytes from " << c.start << " by " << c.step);
        const sender from{random_bytes(c.len, c.len), KOSC_TRANSFER_FILE};
        receiver to;
        std::mt19937 random{c.len};
        std::bernoulli_distribution lost{c.loss};
        uint32_t taken = 0;
        for (uint32_t i = c.start; to.delivered.empty() && i < c.start + 20 * c.step * (from.needed + 10);
             i += c.step) {
            if (!lost(random)) {
                const uint32_t before = to.event.held;
                const kosc_transfer_result_t result = to.take(from.at(i));
                ASSERT_EQ(to.event.held - before, result == KOSC_TRANSFER_REPEATED ? 0U : 1U);
                ++taken;
            }
        }
        ASSERT_EQ(to.delivered.size(), 1U);
        EXPECT_TRUE(to.delivered[0] == from.payload);
        EXPECT_EQ(to.kind, uint32_t{KOSC_TRANSFER_FILE});
        EXPECT_LE(taken, c.fill < 256 ? c.fill : c.fill * 102 / 100);
    }
}

TEST(Transfer, KeepsSendersApartAndDeliversEachPayloadOnce)
{
    const std::vector<sender> senders = [] {
        std::vector<sender> made;
        made.emplace_back(random_bytes(700, 1));
        made.emplace_back(random_bytes(700, 2)); // as long
        made.emplace_back(random_bytes(2000, 3));
        made.emplace_back(random_bytes(700, 1), KOSC_TRANSFER_BYTES, 9U); // the first once more
        return made;
    }();
    receiver to;
    for (uint32_t i = 50; i < 400; ++i) {
        for (const sender& from : senders) {
            to.take(from.at(i));
            to.take(from.at(i - 7)); // heard twice
            EXPECT_EQ(to.take(message{'a', ' ', 'p', 'l', 'a', 'i', 'n', ' ', 'o', 'n', 'e'}), KOSC_TRANSFER_PLAIN);
            EXPECT_EQ(to.event.needed, 0U);
        }
    }
    std::vector<bytes> sent;
    for (const uint32_t which : {0, 1, 3, 2}) { // in the order in which they get whole
        sent.push_back(senders[which].payload);
    }
    EXPECT_EQ(to.delivered, sent);
}

TEST(Transfer, IsHardlyEverSeenInPlainMessages)
{
    std::mt19937 random{5};
    uint32_t seen = 0;
    for (uint32_t i = 0; i < 2000000; ++i) {
        message plain;
        std::generate(plain.begin(), plain.end(), [&] { return static_cast<uint8_t>(random() >> 24); });
        plain[0] = i % 2 == 0 ? 0xF9 : static_cast<uint8_t>(plain[0] % 0xF5); // 0xF5 and above never occur in UTF-8
        const bool taken = kosc_transfer_read_header(plain.data(), nullptr);
        EXPECT_TRUE(i % 2 == 0 || !taken);
        seen += taken ? 1 : 0;
    }
    EXPECT_NEAR(seen, 1e6 * 256 * 3.7e-7, 40); // of a million with the first byte set; four standard deviations
}

TEST(Transfer, DeliversNothingWrongAndRecoversWhenMessagesAreForged)
{
    const sender from{random_bytes(500, 4)};
    const kosc_transfer_header_t header = header_of(from.at(0));
    const uint32_t code = kosc_transfer::size_code_of(500);
    kosc_transfer::symbol content = kosc_transfer::load_symbol(from.at(3).data() + 8);
    content.words[1] ^= 1;
    const message forgeries[] = {
        forge(header.id, code, 3, content),     // a source symbol
        forge(header.id, code, 60000, content), // a repair symbol
        sender{random_bytes(500, 5)}.at(3),     // of another transfer, made to collide below
    };
    for (message forged : forgeries) {
        forged = forge(header.id, code, header_of(forged).number, kosc_transfer::load_symbol(forged.data() + 8));
        receiver to;
        EXPECT_EQ(to.take(forged), KOSC_TRANSFER_PROGRESS);
        uint32_t mismatches = 0;
        for (uint32_t i = 0; i < 2 * from.needed + 1; ++i) {
            const bool mismatch = to.take(from.at(i)) == KOSC_TRANSFER_MISMATCH;
            EXPECT_TRUE(!mismatch || to.event.held == 0);
            mismatches += mismatch ? 1 : 0;
        }
        EXPECT_EQ(mismatches, 1U);
        EXPECT_EQ(to.delivered, std::vector<bytes>{from.payload});
    }
}

// One message carries a whole stream: length, kind, check, payload, padding.
TEST(Transfer, BelievesNoStreamThatContradictsItself)
{
    const uint8_t payload[8] = {'p', 'a', 'y'};
    struct {
        uint32_t said, checked, size_code, last;
        kosc_transfer_result_t result;
    } const cases[] = {
        {3, 3, 1, 0, KOSC_TRANSFER_FINISHED}, {3, 4, 1, 0, KOSC_TRANSFER_MISMATCH},
        {3, 3, 1, 9, KOSC_TRANSFER_MISMATCH}, {0, 0, 1, 0, KOSC_TRANSFER_MISMATCH},
        {9, 9, 1, 0, KOSC_TRANSFER_MISMATCH}, {0xFFFFFF, 3, 1, 0, KOSC_TRANSFER_MISMATCH},
        {3, 3, 2, 0, KOSC_TRANSFER_MISMATCH}, // shorter than what was announced
    };
    for (const auto& c : cases) {
        uint8_t stream[20] = {};
        std::copy_n(payload, std::min(c.said, 8U), stream + 12);
        stream[19] = static_cast<uint8_t>(c.last);
        kosc_transfer::store_prefix(stream,
                                    {c.said, 0, kosc_transfer::payload_check(stream + 12, std::min(c.checked, 8U), 0)});
        receiver to;
        for (uint32_t i = 1; i < c.size_code; ++i) {
            to.take(forge(1, c.size_code, i, {}));
        }
        EXPECT_EQ(to.take(forge(1, c.size_code, 0, kosc_transfer::load_symbol(stream))), c.result) << c.said;
    }
    for (const uint32_t code : {0U, 1230U, 2047U}) { // no message, and more than the longest payload fills
        EXPECT_EQ(receiver{}.take(forge(1, code, 0, {})), KOSC_TRANSFER_PLAIN) << code;
    }
    EXPECT_EQ(receiver{}.take(forge(1, 1, 65536, {})), KOSC_TRANSFER_PLAIN);
}

TEST(Transfer, HoldsItsLimitsAndFinishesAmongAMillionBegunTransfers)
{
    const sender from{random_bytes(20000, 6)};
    std::mt19937 random{6};
    heap = {true, 0, 0, 0, 0};
    {
        receiver to;
        uint32_t next = 0;
        for (uint32_t i = 0; i < 1000000; ++i) {
            const uint32_t code = 1000 + random() % 230; // large ones
            to.take(forge(random() & 0xFFFF, code, random() & 0xFFFF, {}));
            if ((i < 20 || i % 100 == 0) && to.delivered.empty()) { // more rarely than transfers are displaced
                to.take(from.at(next++));
            }
        }
        EXPECT_EQ(to.delivered, std::vector<bytes>{from.payload});
        EXPECT_LT(heap.most, 6U << 20);
    }
    heap.most = 0;
    {
        receiver to; // few transfers, but each grows
        for (uint32_t i = 0; i < 400000; ++i) {
            to.take(forge(i % 20, 1229, i / 20, {}));
        }
        EXPECT_GT(heap.most, 4U << 20);
        EXPECT_LT(heap.most, 6U << 20);
    }
    heap.on = false;
    const kosc_transfer_limits_t small = {4096, 50000, 2, 1};
    receiver to{&small};
    EXPECT_EQ(to.take(from.at(0)), KOSC_TRANSFER_REFUSED);
    const sender shorter{random_bytes(4096, 7)};
    for (uint32_t i = 0; i < shorter.needed; ++i) {
        to.take(shorter.at(i));
    }
    EXPECT_EQ(to.delivered, std::vector<bytes>{shorter.payload});
}

TEST(Transfer, LosesNothingWhenMemoryIsShort)
{
    const bytes payload = random_bytes(3000, 8);
    uint32_t failures = 0;
    heap = {true, 0, 0, 0, 0};
    for (bool failed = true; failed; failures += failed ? 1 : 0) {
        heap.asked = 0;
        ++heap.failing;
        {
            const sender from{payload};
            receiver to;
            uint32_t refused = 0;
            for (uint32_t i = 30; from.handle && to.handle && i < 30 + from.needed; ++i) {
                while (to.take(from.at(i)) == KOSC_TRANSFER_NO_MEMORY) {
                    ++refused;
                }
            }
            failed = heap.asked >= heap.failing;
            EXPECT_EQ(refused, failed && from.handle && to.handle ? 1U : 0U) << heap.failing;
            EXPECT_EQ(to.delivered.size(), from.handle && to.handle ? 1U : 0U) << heap.failing;
            EXPECT_TRUE(to.delivered.empty() || to.delivered[0] == payload);
        }
        EXPECT_EQ(heap.live, 0U) << heap.failing;
    }
    heap.on = false;
    EXPECT_EQ(failures, 3U + 3U + 1U + 2U * 5U + 2U + 1U); // sender, receiver, transfer, growth, decoding, payload
}

TEST(Transfer, RefusesArgumentsOutOfRange)
{
    const bytes payload(KOSC_TRANSFER_MAX_BYTES + 1);
    uint8_t one[KOSC_TRANSFER_MESSAGE_BYTES];
    EXPECT_EQ(kosc_transfer_sender_init(nullptr, 1, 0, 0), nullptr);
    EXPECT_EQ(kosc_transfer_sender_init(payload.data(), 0, 0, 0), nullptr);
    EXPECT_EQ(kosc_transfer_sender_init(payload.data(), KOSC_TRANSFER_MAX_BYTES + 1, 0, 0), nullptr);
    EXPECT_EQ(kosc_transfer_sender_init(payload.data(), 1, 256, 0), nullptr);
    EXPECT_EQ(kosc_transfer_sender_needed(nullptr), 0U);
    EXPECT_FALSE(kosc_transfer_sender_message(nullptr, 0, one));
    EXPECT_FALSE(kosc_transfer_sender_message(sender{{1}}.handle.get(), 0, nullptr));
    EXPECT_FALSE(kosc_transfer_read_header(nullptr, nullptr));
    EXPECT_EQ(kosc_transfer_take(nullptr, one, nullptr), KOSC_TRANSFER_INVALID);
    EXPECT_EQ(kosc_transfer_take(receiver{}.handle.get(), nullptr, nullptr), KOSC_TRANSFER_INVALID);
    const kosc_transfer_limits_t none = {1, 1, 0, 0};
    EXPECT_EQ(kosc_transfer_receiver_init(&none), nullptr);
    kosc_transfer_sender_free(nullptr);
    kosc_transfer_receiver_free(nullptr);
    EXPECT_EQ(kosc_transfer_round(UINT32_MAX), UINT32_MAX);
}

} // namespace
