#include "kosc/second_look.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <numeric>
#include <tuple>

#include <gtest/gtest.h>

#include "channels.h"
#include "support/modem.h"

namespace {

using namespace kosc_link;

// `frame` under drift and noise at the level of a recording.
double_list spoil(const double_list& frame, double ppm, double snr_db, uint64_t seed)
{
    random_source random{seed};
    double_list sound = drift(frame, ppm, ppm, 0, 0);
    scale(&sound, 1500 / std::sqrt(mean_power(sound, 0, frame.size())));
    sound.resize(frame.size() + 100);
    add_noise(&sound, noise_variance(1500.0 * 1500, snr_db, NEAR_ULTRASONIC, 48000), &random);
    return sound;
}

uint32_t look(const context_ptr& ctx, const double_list& sound, byte_list* msg = nullptr,
              frame_quality_t* quality = nullptr)
{
    return soundcomm_decode_second_look(ctx.get(), sound.data(), static_cast<uint32_t>(sound.size()),
                                        msg != nullptr ? msg->data() : nullptr,
                                        msg != nullptr ? static_cast<uint32_t>(msg->size()) : 0, quality);
}

// Root mean square distance of complex values.
double distance(const double_list& a, const double_list& b)
{
    const auto square = [](double x, double y) { return (x - y) * (x - y); };
    return std::sqrt(2 * std::inner_product(a.begin(), a.end(), b.begin(), 0.0, std::plus<>(), square) /
                     static_cast<double>(a.size()));
}

TEST(SecondLook, HearsAndMeasuresWhatTheFirstLoses)
{
    // The last lies under a loud sound far below its band, 40 dB over it.
    const std::tuple<double, double, double> cases[] = {{0, 2, 0}, {300, 20, 0}, {-300, 2, 200000}};
    const context_ptr ctx = kosc::make_receiving_context(KOSC_SECOND_LOOK_ON);
    for (const auto& [ppm, snr_db, loud] : cases) {
        SCOPED_TRACE(testing::Message() << ppm << " ppm, " << snr_db << " dB");
        double_list sound = spoil(encode(ctx.get(), message("deeper")), ppm, snr_db, 3);
        for (size_t i = 0; i < sound.size(); ++i) {
            sound[i] += loud * std::sin(0.3 * static_cast<double>(i));
        }
        byte_list found(MSG_LEN);
        frame_quality_t quality{};
        EXPECT_EQ(look(ctx, sound, &found, &quality), 1U);
        EXPECT_EQ(found, message("deeper"));
        EXPECT_TRUE(quality.needed && quality.decoded) << "not lost by the first look";
        EXPECT_NEAR(quality.drift_ppm, ppm, 60.0);
        // Fades take 0.4 dB off the frame's mean power; estimates over 576 cells hold to half a decibel.
        EXPECT_NEAR(quality.snr_db, snr_db + 0.4, 0.8);
        EXPECT_NEAR(20 * std::log10(quality.evm), -quality.snr_db, 1.0);
        const uint32_t count = ctx->rx_paras->frame.re_num;
        double_list sent(2 * count), first(2 * count), second(2 * count);
        const double_list clean = encode(ctx.get(), message("deeper"));
        EXPECT_EQ(soundcomm_equalise(ctx.get(), clean.data(), FRAME_LEN, sent.data(), count), count);
        EXPECT_EQ(soundcomm_equalise(ctx.get(), sound.data(), FRAME_LEN, first.data(), count), count);
        EXPECT_EQ(soundcomm_get_equalised_symbols(ctx.get(), second.data(), count), count);
        EXPECT_NEAR(distance(second, sent), quality.evm, 0.1 * quality.evm);
        EXPECT_GT(distance(first, sent), 1.2 * quality.evm);
    }
}

TEST(SecondLook, WeighsSymbolsByTheirNoiseWhereFramesMayOverlap)
{
    // Noise 11 dB over the frame lies on two of its nine symbols; at 0 and 3 one of them is a pilot.
    constexpr size_t SYMBOL = 1280;
    for (const auto& [crowd, heard] : {std::pair{KOSC_CROWD_OFF, 0U}, {KOSC_CROWD_CANCEL, 1U}}) {
        const context_ptr ctx = kosc::make_receiving_context(KOSC_SECOND_LOOK_ON, *soundcomm_default_cfg(), crowd);
        for (const size_t first : {0, 2, 3, 5}) {
            SCOPED_TRACE(testing::Message() << "from symbol " << first << " on, crowd " << crowd);
            double_list sound = spoil(encode(ctx.get(), message("covered")), 0, 25, 5);
            random_source random{first};
            std::for_each_n(sound.begin() + static_cast<ptrdiff_t>(first * SYMBOL), 2 * SYMBOL,
                            [&](double& x) { x += 15000 * random.gaussian(); });
            byte_list found(MSG_LEN);
            EXPECT_EQ(look(ctx, sound, &found), heard);
            EXPECT_EQ(found == message("covered"), heard == 1);
        }
    }
}

TEST(SecondLook, LeavesResultsAndRecordsItCannotHelpAsTheyWere)
{
    const double_list frame = encode(make_context().get(), message("too deep"));
    for (const double snr_db : {-4.0, 20.0}) {
        const double_list sound = spoil(frame, 0, snr_db, 7);
        const auto results = [&sound](uint32_t second_look) {
            const context_ptr ctx = kosc::make_receiving_context(second_look);
            byte_list correct(MSG_LEN), error(MSG_LEN), cache(MSG_LEN);
            receive_track_t track{nullptr, nullptr, cache.data()};
            result_slot_t slot{{correct.data(), MSG_LEN, 0}, {error.data(), MSG_LEN, 0}};
            do_decode(ctx.get(), &track, &slot, sound.data());
            const frame_quality_t last = soundcomm_get_frame_quality(ctx.get());
            EXPECT_EQ(last.decoded, second_look != KOSC_SECOND_LOOK_OFF && slot.correct.count == 1);
            EXPECT_EQ(last.snr_db > 15, second_look == KOSC_SECOND_LOOK_MEASURE && slot.correct.count == 1);
            return std::tuple{slot.correct.count, slot.error.count, correct, error};
        };
        const auto without = results(KOSC_SECOND_LOOK_OFF);
        EXPECT_EQ(std::get<0>(without), snr_db > 0 ? 1U : 0U);
        EXPECT_EQ(results(KOSC_SECOND_LOOK_ON), without);
        EXPECT_EQ(results(KOSC_SECOND_LOOK_MEASURE), without);
    }
}

TEST(SecondLook, FindsNoMessageInNoise)
{
    const context_ptr ctx = kosc::make_receiving_context(KOSC_SECOND_LOOK_ON);
    for (uint64_t seed = 0; seed < 40; ++seed) {
        double_list sound = spoil(encode(ctx.get(), message("?")), 0, 3, seed);
        for (size_t i = 0; i < FRAME_LEN; ++i) {
            // Half of them keep the pilots, so that every attempt is made.
            const bool kept = seed % 2 != 0 && is_pilot_index(2, static_cast<uint32_t>(i / 1280));
            sound[i] = kept ? sound[i] : 1000 * std::sin(0.7 * static_cast<double>(i * (i + seed) % 4099));
        }
        EXPECT_EQ(look(ctx, sound), 0U) << seed;
    }
}

TEST(SecondLook, DeclinesWhatItCannotDo)
{
    static constexpr uint32_t long_code[] = {1, 3}, nine[] = {1, 3, 1, 3, 1, 3, 1, 3, 1};
    const edit cases[] = {
        [](auto& c) { use_block_code(c); },
        [](auto& c) { c.ofdm_cfg.sc_num = 1, c.ofdm_cfg.papr = KOSC_PAPR_NONE; },
        [](auto& c) { c.ofdm_cfg.cp_len = 1024; }, // the longest that a context takes
        [](auto& c) {
            c.channel_code_cfg.paras.conv = {17, long_code, 2};
        },
        [](auto& c) {
            c.channel_code_cfg.paras.conv = {7, nine, 9};
        },
        // Five data symbols at rate 4 ask for two pilots, but have a place for one.
        [](auto& c) {
            c.pilot_cfg.data_pilot_rate = 4, c.crc_cfg.group = 1, c.msg_byte_len = 18, c.crc_cfg.bits = 16,
            c.ofdm_cfg.sc_num = 48;
            c.ofdm_cfg.papr = KOSC_PAPR_NONE;
        },
    };
    for (const edit& change : cases) {
        SCOPED_TRACE(&change - cases);
        const log_capture log{KOSC_LEVEL_WARN};
        const context_ptr ctx = make_context(change);
        ASSERT_NE(ctx, nullptr);
        EXPECT_FALSE(soundcomm_config_second_look(ctx.get(), KOSC_SECOND_LOOK_ON));
        EXPECT_EQ(logged(), text_list{"WARN no second look for this configuration"});
    }
}

TEST(SecondLook, ChecksItsArguments)
{
    const log_capture log{KOSC_LEVEL_WARN};
    const context_ptr nobody, off = kosc::make_receiving_context(KOSC_SECOND_LOOK_OFF);
    EXPECT_EQ(look(nobody, double_list(FRAME_LEN)), KOSC_DECODE_FAILED);
    EXPECT_EQ(look(off, {}), KOSC_DECODE_FAILED);
    EXPECT_EQ(look(off, double_list(FRAME_LEN - 1)), KOSC_DECODE_FAILED);
    EXPECT_EQ(look(off, double_list(FRAME_LEN)), KOSC_DECODE_FAILED);
    EXPECT_FALSE(soundcomm_config_second_look(nullptr, 1));
    EXPECT_EQ(ko_soundcommu_config_second_look(nullptr, 1), -1);
    EXPECT_EQ(logged(), (text_list{"ERROR ctx is null", "ERROR input is null", "ERROR input_len too short 11519",
                                   "ERROR second look is off", "ERROR ctx is null", "ERROR kosc is NULL"}));
    EXPECT_EQ(soundcomm_get_equalised_symbols(nullptr, nullptr, 0), 0U);
    EXPECT_EQ(soundcomm_get_equalised_symbols(off.get(), nullptr, 0), 0U);
    EXPECT_EQ(soundcomm_equalise(off.get(), double_list(FRAME_LEN).data(), FRAME_LEN, nullptr, 0), 0U);
}

} // namespace
