// Repeats and microphones added up: whole messages through noise, and what a host is told of them.
#include "kosc/combining.h"

#include <cmath>
#include <set>

#include "crowd.h"
#include "repeats.h"
#include "support/modem.h"

namespace {

using kosc_link::difference;
using kosc_link::repeat_setup;

struct reach {
    const char* channel;
    double snr_db;
    uint32_t repeats;
    uint32_t by_one; // messages of TRIALS that one microphone delivers, and two; give or take some
    uint32_t by_two;
    uint32_t messages;
    difference kind;
};

// Slopes that a loss of half a decibel would move by far more. The second look alone delivers none of these.
TEST(Combining, HearsRepeatsFarBelowWhatOneFrameNeeds)
{
    const log_capture quiet{0};
    constexpr uint32_t TRIALS = 8;
    const reach rows[] = {
        {"white", -5.5, 4, 7, 8, 1, difference::RANDOM},    {"echoes", -4.0, 4, 5, 8, 1, difference::RANDOM},
        {"drift", -4.5, 4, 7, 8, 1, difference::RANDOM},    {"white", -4.0, 4, 16, 16, 2, difference::RANDOM},
        {"white", -3.0, 4, 14, 16, 2, difference::COUNTER},
    };
    for (const reach& row : rows) {
        SCOPED_TRACE(testing::Message() << row.channel << " at " << row.snr_db << " dB, " << row.messages
                                        << " messages");
        repeat_setup setup;
        setup.channel = kosc_link::find_channel(row.channel);
        setup.repeats = row.repeats;
        setup.messages = row.messages;
        setup.kind = row.kind;
        uint32_t got[kosc_link::SYSTEMS] = {};
        for (uint32_t t = 0; t < TRIALS; ++t) {
            const auto outcome = run_repeats(setup, row.snr_db, 500 + t);
            for (const int s : {kosc_link::COMBINED_1, kosc_link::COMBINED_2}) {
                EXPECT_EQ(outcome.wrong[s], 0U);
                for (const uint32_t first : outcome.first[s]) {
                    got[s] += first != 0 ? 1 : 0;
                }
            }
        }
        constexpr double BAND = 3; // rounding differs between compilers
        EXPECT_NEAR(got[kosc_link::COMBINED_1], row.by_one, BAND);
        EXPECT_NEAR(got[kosc_link::COMBINED_2], row.by_two, BAND);
    }
}

// Frames of two counters' values in turn: with these seeds sums pass both CRCs with a half of each.
TEST(Combining, DeliversNoMixtureOfSimilarMessages)
{
    const log_capture quiet{0};
    repeat_setup setup;
    setup.channel = kosc_link::find_channel("white");
    setup.repeats = 6;
    setup.messages = 2;
    setup.kind = difference::COUNTER;
    uint32_t delivered = 0;
    uint64_t refused = 0;
    for (const uint64_t seed : {1U, 15U, 24U, 31U}) {
        const auto outcome = run_repeats(setup, -4.0, seed);
        for (const int s : {kosc_link::COMBINED_1, kosc_link::COMBINED_2}) {
            EXPECT_EQ(outcome.wrong[s], 0U);
            refused += outcome.counts[s - kosc_link::COMBINED_1].refused;
            for (const uint32_t first : outcome.first[s]) {
                delivered += first != 0 ? 1 : 0;
            }
        }
    }
    EXPECT_GT(refused, 0U);
    EXPECT_GE(delivered, 10U) << "of 16, though some sums are refused";
}

// Frames of texts, a third of a second apart, with noise; the second channel hears them 11 samples later.
pcm scene(const text_list& texts, double snr_db, uint64_t seed, uint32_t channel = 0)
{
    const context_ptr ctx = make_context();
    kosc_link::signal all(20000 + 11 * channel);
    for (const std::string& text : texts) {
        const double_list frame = encode(ctx.get(), message(text));
        all.insert(all.end(), frame.begin(), frame.end());
        all.resize(all.size() + 4000);
    }
    all.resize(all.size() + 40000);
    constexpr double RMS = 1500;
    kosc_link::scale(&all, RMS / std::sqrt(kosc_link::mean_power(all, 20000 + 11 * channel, FRAME_LEN)));
    kosc_link::random_source random{seed + channel};
    kosc_link::add_noise(&all, kosc_link::noise_variance(RMS * RMS, snr_db, kosc_link::NEAR_ULTRASONIC, 48000),
                         &random);
    return kosc_link::to_pcm(all);
}

pcm scene(const char* text, uint32_t frames, double snr_db, uint64_t seed, uint32_t channel = 0)
{
    return scene(text_list(frames, text), snr_db, seed, channel);
}

struct told {
    int channel;
    byte_list msg;
    int result; // of ko_soundcommu_get_combined()
    ko_soundcommu_combined_t combined;
};

// Feeds both channels in turns and asks about each message.
std::vector<told> hear(soundcommu_handle_t* handle, const pcm& first, const pcm& second, size_t block = 960)
{
    std::vector<told> all;
    for (size_t n = 0; n < std::max(first.size(), second.size()); n += block) {
        for (const int channel : {0, 1}) {
            const pcm& sound = channel == 0 ? first : second;
            if (n >= sound.size()) {
                continue;
            }
            const size_t count = std::min(block, sound.size() - n);
            EXPECT_EQ(ko_soundcommu_decode(handle, &sound[n], static_cast<int>(2 * count), channel), 0);
            const result_part_t& correct = handle->result[channel].correct;
            for (uint32_t i = 0; i < correct.count; ++i) {
                told t{channel, list(correct.buffer + size_t{i} * MSG_LEN, MSG_LEN), 0, {}};
                t.result = ko_soundcommu_get_combined(handle, channel, i, &t.combined, sizeof t.combined);
                all.push_back(t);
            }
        }
    }
    return all;
}

handle_ptr make_handle(uint32_t combining)
{
    ko_soundcommu_options_t options{};
    ko_soundcommu_default_options(&options, sizeof options);
    options.combining = combining;
    return handle_ptr{ko_soundcommu_init_with(&options)};
}

TEST(Combining, TellsFromWhatAMessageWasPutTogetherAndDeliversItOnce)
{
    const log_capture quiet{0};
    const pcm left = scene("repeated", 6, -4.0, 7), right = scene("repeated", 6, -4.0, 7, 1);
    const pcm none;
    struct {
        uint32_t mode;
        bool both;
        size_t block;
        uint32_t deliveries, microphones;
    } const cases[] = {{KOSC_COMBINING_EACH, true, 960, 2, 1},       {KOSC_COMBINING_TOGETHER, true, 960, 1, 2},
                       {KOSC_COMBINING_TOGETHER, true, 160, 1, 2},   {KOSC_COMBINING_TOGETHER, true, 4096, 1, 2},
                       {KOSC_COMBINING_TOGETHER, true, 70000, 1, 0}, {KOSC_COMBINING_TOGETHER, false, 480, 1, 1},
                       {KOSC_COMBINING_OFF, true, 960, 0, 0}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "mode " << c.mode << ", blocks of " << c.block << ", both " << c.both);
        const handle_ptr handle = make_handle(c.mode);
        const auto all = hear(handle.get(), left, c.both ? right : none, c.block);
        ASSERT_EQ(all.size(), c.deliveries);
        for (const told& t : all) {
            EXPECT_EQ(t.msg, message("repeated"));
            EXPECT_EQ(t.result, 1);
            EXPECT_TRUE(t.combined.frames >= 1 && t.combined.frames <= 6);
            EXPECT_GE(t.combined.hearings, t.combined.frames);
            EXPECT_TRUE(c.microphones == 0 || t.combined.microphones == c.microphones);
            EXPECT_NEAR(t.combined.newest_snr_db, -4.0, 2.5);
            EXPECT_GT(t.combined.snr_db, t.combined.newest_snr_db);
            EXPECT_NEAR(t.combined.seconds, (t.combined.frames - 1) * 15520 / 48000.0, 0.34);
        }
    }
}

// A channel that falls silent for the host, not for the sender, and comes back: it is heard together with the other
// again, or else six frames would not do.
TEST(Combining, GoesOnInStepWithAChannelThatWasNotFedForAWhile)
{
    const log_capture quiet{0};
    const handle_ptr handle = make_handle(KOSC_COMBINING_TOGETHER);
    const pcm before = scene("before", 0, 0, 1);
    hear(handle.get(), join({before, before, before}), before);
    const auto all = hear(handle.get(), scene("late", 3, -5.5, 3), scene("late", 3, -5.5, 3, 1));
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(all[0].msg, message("late"));
    EXPECT_EQ(all[0].combined.microphones, 2U);
}

// What the receiver delivers by itself stays, message for message and call for call, and is not delivered again.
TEST(Combining, LeavesWhatIsHeardAnywayAsItIs)
{
    const log_capture quiet{0};
    std::vector<pcm> parts;
    for (const double snr : {20.0, 4.5, -3.0, -3.0, -3.0, 1.0, 12.0}) {
        parts.push_back(scene("same", 1, snr, static_cast<uint64_t>(snr + 50)));
    }
    const pcm sound = join(parts);
    for (const uint32_t look : {0U, 1U}) {
        std::multiset<std::pair<int, byte_list>> plain, combined;
        for (const uint32_t mode : {0U, 1U, 2U}) {
            const handle_ptr handle = make_handle(mode);
            EXPECT_EQ(ko_soundcommu_config_second_look(handle.get(), look), 0);
            std::multiset<std::pair<int, byte_list>> own;
            for (const told& t : hear(handle.get(), sound, sound)) {
                EXPECT_EQ(t.result, 0) << "the message was delivered before";
                own.insert({t.channel, t.msg});
            }
            plain = mode == 0 ? own : plain;
            EXPECT_EQ(own, plain);
            EXPECT_GE(own.size(), 4U);
        }
    }
}

// Overlapping frames, a weak message, more messages than a second has, and the weak one again: whatever one setting
// delivers is delivered with all of them on, and nothing twice within seconds.
TEST(Combining, DeliversWithACrowdWhatEachAloneDelivers)
{
    const log_capture quiet{0};
    text_list busy;
    for (char c = 'a'; c <= 'r'; ++c) {
        busy.push_back(std::string("busy ") + c);
    }
    const pcm pair = kosc_link::make_overlap({kosc_link::surroundings::CLEAN, 2, 3000, 10, 20, 0}, 0).pcm;
    const pcm sound = join({pair, scene("weak", 5, -4.0, 7), scene(busy, 12.0, 9), scene("weak", 5, -4.0, 11)});
    const auto deliveries = [&](uint32_t crowd, uint32_t combining) {
        ko_soundcommu_options_t options{};
        ko_soundcommu_default_options(&options, sizeof options);
        options.second_look = KOSC_SECOND_LOOK_ON;
        options.crowd = crowd;
        options.combining = combining;
        const handle_ptr handle{ko_soundcommu_init_with(&options)};
        std::multiset<byte_list> all;
        for (const told& t : hear(handle.get(), sound, {})) {
            all.insert(t.msg);
        }
        return all;
    };
    const auto plain = deliveries(KOSC_CROWD_OFF, KOSC_COMBINING_OFF);
    const auto crowd = deliveries(KOSC_CROWD_CANCEL, KOSC_COMBINING_OFF);
    const auto combined = deliveries(KOSC_CROWD_OFF, KOSC_COMBINING_EACH);
    auto expected = crowd;
    expected.insert(message("weak"));
    EXPECT_EQ(plain.size() + 1, crowd.size()) << "the fainter one of the pair";
    EXPECT_EQ(plain.size() + 1, combined.size()) << "the weak one, once";
    EXPECT_EQ(deliveries(KOSC_CROWD_CANCEL, KOSC_COMBINING_EACH), expected);
    EXPECT_EQ(deliveries(KOSC_CROWD_CANCEL, KOSC_COMBINING_TOGETHER), expected);
}

TEST(Combining, RefusesWhatItCannotDoAndGoesOnWithout)
{
    const log_capture log{KOSC_LEVEL_WARN};
    const auto config = [](soundcomm_context_t* first, soundcomm_context_t* second, uint32_t mode) {
        log_capture::clear();
        const bool done = soundcomm_config_combining(first, second, mode);
        return std::pair{done, logged()};
    };
    const auto make = [](const edit& change, uint32_t tracks = 1) {
        context_ptr ctx = make_context(change);
        EXPECT_TRUE(tracks == 0 || soundcomm_init_receive(ctx.get(), {0.4, 20, 1}, {2, tracks, 48000}));
        return ctx;
    };
    const auto keep = [](soundcomm_cfg_t&) {};
    const context_ptr good = make(keep), same = make(keep), low = make([](auto&c) { c.ofdm_cfg.sc_start_idx = 7; }),
                      stereo = make(keep, 2), deaf = make(keep, 0), wide = make([](auto&c) { c.ofdm_cfg.sc_num = 32; });
    using answer = std::pair<bool, text_list>;
    const answer done{true, {}}, no{false, {"WARN no combining for this configuration"}};
    EXPECT_EQ(config(nullptr, nullptr, 1), (answer{false, {"ERROR ctx is null"}}));
    EXPECT_EQ(config(good.get(), nullptr, 2), (answer{false, {"ERROR ctx is null"}}));
    EXPECT_EQ(config(good.get(), nullptr, 3), (answer{false, {"ERROR unknown combining mode 3"}}));
    for (const context_ptr* other : {&stereo, &deaf, &wide}) {
        EXPECT_EQ(config(other->get(), nullptr, 1), no);
    }
    EXPECT_EQ(config(good.get(), low.get(), 2), no);
    EXPECT_EQ(config(good.get(), good.get(), 2), no);
    EXPECT_EQ(config(good.get(), low.get(), 1), done);
    EXPECT_EQ(config(good.get(), same.get(), 2), done);
    EXPECT_TRUE(good->rx_paras->combining != nullptr && good->rx_paras->combining == same->rx_paras->combining);
    EXPECT_EQ(config(same.get(), nullptr, 0), done) << "which ends it for both";
    EXPECT_EQ(good->rx_paras->combining, nullptr);
    EXPECT_EQ(soundcomm_get_combining_counts(good.get()).frames + soundcomm_get_combining_counts(nullptr).frames, 0U);

    const handle_ptr handle = make_handle(2);
    ko_soundcommu_combined_t combined{};
    EXPECT_EQ(make_handle(3), nullptr);
    EXPECT_EQ(ko_soundcommu_config_combining(nullptr, 1), -1);
    EXPECT_EQ(ko_soundcommu_config_combining(handle.get(), 3), -1);
    EXPECT_EQ(ko_soundcommu_get_combined(nullptr, 0, 0, &combined, sizeof combined), -1);
    EXPECT_EQ(ko_soundcommu_get_combined(handle.get(), 2, 0, &combined, sizeof combined), -1);
    EXPECT_EQ(ko_soundcommu_get_combined(handle.get(), 0, 0, nullptr, 0), -1);
    EXPECT_EQ(ko_soundcommu_get_combined(handle.get(), 0, 0, &combined, sizeof combined), -1);
}

} // namespace
