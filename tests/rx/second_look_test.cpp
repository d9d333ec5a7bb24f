#include "kosc/second_look.h"

#include <cmath>

#include <gtest/gtest.h>

#include "channels.h"
#include "support/modem.h"

#if defined(__SANITIZE_ADDRESS__)
#define COUNTS_ALLOCATIONS 0
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define COUNTS_ALLOCATIONS 0
#endif
#endif
#ifndef COUNTS_ALLOCATIONS
#define COUNTS_ALLOCATIONS 1
#endif

namespace {
size_t allocations = 0;
}

#if COUNTS_ALLOCATIONS
// The C library's own, which these stand before for the whole process.
extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void* malloc(size_t size) { return ++allocations, __libc_malloc(size); }
void* calloc(size_t count, size_t size) { return ++allocations, __libc_calloc(count, size); }
void* realloc(void* block, size_t size) { return ++allocations, __libc_realloc(block, size); }
}
#endif

namespace {

using namespace kosc_link;
using kosc_link::signal; // not the C library's

constexpr band SUBCARRIERS = {18000, 20953.125};

// `frame` under drift and noise at the level of a recording.
signal spoil(const signal& frame, double ppm, double snr_db, uint64_t seed)
{
    random_source random{seed};
    signal sound = drift(frame, ppm, ppm, 0, 0);
    scale(&sound, 1500 / std::sqrt(mean_power(sound, 0, frame.size())));
    sound.resize(frame.size() + 100);
    add_noise(&sound, noise_variance(1500.0 * 1500, snr_db, SUBCARRIERS, 48000), &random);
    return sound;
}

context_ptr listener(uint32_t second_look)
{
    context_ptr ctx = make_context();
    EXPECT_TRUE(soundcomm_config_second_look(ctx.get(), second_look));
    return ctx;
}

TEST(SecondLook, HearsWhatTheFirstLoses)
{
    const struct {
        double ppm, snr_db;
    } cases[] = {{0, 2}, {150, 3}, {300, 20}, {-300, 2}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.ppm << " ppm, " << c.snr_db << " dB");
        const context_ptr ctx = listener(KOSC_SECOND_LOOK_ON);
        const signal sound = spoil(encode(ctx.get(), message("deeper")), c.ppm, c.snr_db, 3);
        byte_list first(MSG_LEN), second(MSG_LEN);
        const auto length = static_cast<uint32_t>(sound.size());
        EXPECT_EQ(soundcomm_decode(ctx.get(), sound.data(), length, first.data(), first.data(), MSG_LEN), 0U);
        frame_quality_t quality{};
        ASSERT_EQ(soundcomm_decode_second_look(ctx.get(), sound.data(), length, second.data(), MSG_LEN, &quality), 1U);
        EXPECT_EQ(second, message("deeper"));
        EXPECT_TRUE(quality.needed && quality.decoded);
        EXPECT_NEAR(quality.drift_ppm, c.ppm, 60.0);
        // Fades take 0.4 dB off the frame's mean power; estimates over 576 cells hold to half a decibel.
        EXPECT_NEAR(quality.snr_db, c.snr_db + 0.4, 0.8);
        EXPECT_NEAR(20 * std::log10(quality.evm), -quality.snr_db, 1.0);
    }
}

TEST(SecondLook, IsNotDisturbedByLoudSoundsFarBelow)
{
    const context_ptr ctx = listener(KOSC_SECOND_LOOK_ON);
    random_source random{4};
    signal speech(FRAME_LEN);
    add_noise(&speech, 1.0, &random);
    speech = low_pass(speech, 4000, 48000);
    scale(&speech, 150000 / std::sqrt(mean_power(speech, 0, FRAME_LEN))); // 40 dB over the frame
    for (const double ppm : {-300.0, 0.0, 300.0}) {
        signal sound = spoil(encode(ctx.get(), message("between the lines")), ppm, 2, 6);
        for (uint32_t i = 0; i < FRAME_LEN; ++i) {
            sound[i] += speech[i];
        }
        EXPECT_EQ(soundcomm_decode_second_look(ctx.get(), sound.data(), FRAME_LEN, nullptr, 0, nullptr), 1U) << ppm;
    }
}

TEST(SecondLook, DeliversInTheOrderOfTheRecording)
{
    const log_capture log{KOSC_LEVEL_WARN};
    host h;
    signal moving = drift(encode(h.get()->ctx[0], message("moving")), 2500, 2500, 0, 0);
    scale(&moving, 15000);
    const pcm sound = join({h.frame("before"), silence(50), to_pcm(moving), to_pcm(moving), silence(50),
                            h.frame("behind"), silence(11600)});
    const message_list outer = {message("before"), message("behind")};
    EXPECT_EQ(h.hear({4096}, sound).messages, outer) << "off after init";
    EXPECT_EQ(ko_soundcommu_config_second_look(h.get(), 1), 0);
    const heard all = h.hear({4096}, sound);
    EXPECT_EQ(all.messages, (message_list{message("before"), message("moving"), message("moving"), message("behind")}));
    EXPECT_EQ(all.errors, 0U);
    EXPECT_EQ(ko_soundcommu_config_second_look(h.get(), 0), 0);
    EXPECT_EQ(h.hear({4096}, sound).messages, outer) << "off again";
    EXPECT_EQ(ko_soundcommu_config_second_look(nullptr, 1), -1);
    EXPECT_EQ(logged(), text_list{"ERROR kosc is NULL"});
}

TEST(SecondLook, LeavesWhatItCannotHelpAsItWas)
{
    const context_ptr with = listener(KOSC_SECOND_LOOK_ON), without = listener(KOSC_SECOND_LOOK_OFF);
    const signal sound = spoil(encode(with.get(), message("too deep")), 0, -4, 7);
    byte_list error[2] = {byte_list(MSG_LEN), byte_list(MSG_LEN)};
    for (const auto& ctx : {std::pair{with.get(), 0}, std::pair{without.get(), 1}}) {
        byte_list cache(MSG_LEN);
        receive_track_t track{nullptr, nullptr, cache.data()};
        result_slot_t slot{{}, {error[ctx.second].data(), MSG_LEN, 0}};
        EXPECT_EQ(do_decode(ctx.first, &track, &slot, sound.data()), 0U);
        EXPECT_EQ(slot.error.count, 1U);
        EXPECT_EQ(slot.correct.count, 0U);
    }
    EXPECT_EQ(error[0], error[1]);
}

TEST(SecondLook, FindsNoMessageInNoise)
{
    const context_ptr ctx = listener(KOSC_SECOND_LOOK_ON);
    const signal silence_(FRAME_LEN);
    uint32_t attempts = 0;
    for (uint64_t seed = 0; seed < 60; ++seed) {
        // Half of them keep the pilots, so that every attempt is made.
        signal sound = spoil(seed % 2 == 0 ? silence_ : encode(ctx.get(), message("?")), 0, 3, seed);
        for (size_t i = 0; i < sound.size(); ++i) {
            const bool pilot = is_pilot_index(2, static_cast<uint32_t>(i / 1280));
            sound[i] = pilot && seed % 2 != 0 ? sound[i] : 1000 * std::sin(0.7 * static_cast<double>(i * i % 4099));
        }
        frame_quality_t quality{};
        EXPECT_EQ(soundcomm_decode_second_look(ctx.get(), sound.data(), FRAME_LEN, nullptr, 0, &quality), 0U);
        EXPECT_LE(quality.attempts, uint32_t{KOSC_MAX_ATTEMPTS});
        attempts = std::max(attempts, quality.attempts);
    }
    EXPECT_GT(attempts, uint32_t{KOSC_MAX_DRIFTS});
}

TEST(SecondLook, AllocatesNothingForAFrame)
{
    if (COUNTS_ALLOCATIONS == 0) {
        GTEST_SKIP() << "the sanitizer has the allocator";
    }
    const context_ptr ctx = listener(KOSC_SECOND_LOOK_ON);
    for (const double snr_db : {-3.0, 3.0}) {
        const signal sound = spoil(encode(ctx.get(), message("frugal")), 1000, snr_db, 9);
        const size_t before = allocations;
        soundcomm_decode_second_look(ctx.get(), sound.data(), FRAME_LEN, nullptr, 0, nullptr);
        EXPECT_EQ(allocations, before) << snr_db;
    }
    EXPECT_GT(allocations, 0U);
}

TEST(SecondLook, WorksWithEveryConvolutionalConfiguration)
{
    static constexpr uint32_t half_rate[] = {109, 79}, longer[] = {367, 435, 457};
    const edit cases[] = {
        [](auto& c) { c.ofdm_cfg.papr = KOSC_PAPR_NONE; },
        [](auto& c) { c.ofdm_cfg.papr = KOSC_PAPR_SHORT_PATTERN; },
        [](auto& c) { c.ofdm_cfg.papr = KOSC_PAPR_DFT_SPREAD; },
        [](auto& c) {
            c.channel_code_cfg.paras.conv = {7, half_rate, 2};
        },
        [](auto& c) {
            c.channel_code_cfg.paras.conv = {9, longer, 3};
        },
        [](auto& c) { c.crc_cfg.group = 4, c.msg_byte_len = 24; },
        [](auto& c) { c.interleaver_cfg.stride = 48; },
        [](auto& c) {
            c.ofdm_cfg = {512, 128, 192, 32, KOSC_PAPR_LONG_PATTERN};
        },
        [](auto& c) { c.ofdm_cfg.sc_num = 192, c.ofdm_cfg.sc_start_idx = 300; }, // one pilot
        [](auto& c) { c.pilot_cfg.data_pilot_rate = 1; },
        [](auto& c) {
            c.fade_cfg = {0, 0};
        },
    };
    for (const edit& change : cases) {
        SCOPED_TRACE(&change - cases);
        const context_ptr ctx = make_context(change);
        ASSERT_TRUE(soundcomm_config_second_look(ctx.get(), KOSC_SECOND_LOOK_ON));
        const byte_list msg = message("any shape", ctx->rx_paras->cfg.msg_byte_len);
        const double_list frame = encode(ctx.get(), msg);
        byte_list found(msg.size());
        EXPECT_EQ(soundcomm_decode_second_look(ctx.get(), frame.data(), static_cast<uint32_t>(frame.size()),
                                               found.data(), static_cast<uint32_t>(found.size()), nullptr),
                  1U);
        EXPECT_EQ(found, msg);
    }
}

TEST(SecondLook, DeclinesTheBlockCode)
{
    const log_capture log{KOSC_LEVEL_WARN};
    const context_ptr ctx = make_context([](auto& c) {
        c.channel_code_cfg.type = KOSC_CODE_LINEAR;
        c.channel_code_cfg.paras.linear = {8, 2};
    });
    EXPECT_FALSE(soundcomm_config_second_look(ctx.get(), KOSC_SECOND_LOOK_ON));
    EXPECT_EQ(logged(), text_list{"WARN no second look for this configuration"});
    EXPECT_EQ(soundcomm_get_frame_quality(ctx.get()).attempts, 0U);
}

TEST(SecondLook, RecordsHowTheLastFrameCameIn)
{
    host h;
    const auto last = [&] { return soundcomm_get_frame_quality(h.get()->ctx[0]); };
    soundcomm_set_log_level(0);
    soundcomm_config_second_look(h.get()->ctx[0], KOSC_SECOND_LOOK_ON);
    const pcm sound = join({h.frame("loud and clear"), silence(11600)});
    h.hear({4096}, sound);
    EXPECT_TRUE(last().decoded && !last().needed);
    EXPECT_EQ(last().attempts, 0U) << "frames that decode at once cost nothing";
    soundcomm_config_second_look(h.get()->ctx[0], KOSC_SECOND_LOOK_MEASURE);
    EXPECT_EQ(h.hear({4096}, sound).messages, message_list{message("loud and clear")});
    EXPECT_TRUE(last().decoded && !last().needed);
    EXPECT_GT(last().snr_db, 40.0);
    EXPECT_GT(last().coherence, 0.9);
    soundcomm_config_second_look(h.get()->ctx[0], KOSC_SECOND_LOOK_OFF);
    EXPECT_FALSE(last().decoded);
    soundcomm_set_log_level(KOSC_LEVEL_DEBUG);
}

TEST(SecondLook, ChecksItsArguments)
{
    const log_capture log{KOSC_LEVEL_WARN};
    const context_ptr ctx = listener(KOSC_SECOND_LOOK_OFF);
    const double_list frame(FRAME_LEN);
    const auto look = [](const soundcomm_context_t* c, const double* input, uint32_t length) {
        return soundcomm_decode_second_look(c, input, length, nullptr, 0, nullptr);
    };
    EXPECT_EQ(look(nullptr, frame.data(), FRAME_LEN), KOSC_DECODE_FAILED);
    EXPECT_EQ(look(ctx.get(), nullptr, FRAME_LEN), KOSC_DECODE_FAILED);
    EXPECT_EQ(look(ctx.get(), frame.data(), FRAME_LEN - 1), KOSC_DECODE_FAILED);
    EXPECT_EQ(look(ctx.get(), frame.data(), FRAME_LEN), KOSC_DECODE_FAILED);
    EXPECT_FALSE(soundcomm_config_second_look(nullptr, 1));
    EXPECT_EQ(logged(), (text_list{"ERROR ctx is null", "ERROR input is null", "ERROR input_len too short 11519",
                                   "ERROR second look is off", "ERROR ctx is null"}));
}

} // namespace
