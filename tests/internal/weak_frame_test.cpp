// Frames too weak to decode, as the combiner takes them: what is found of their drift.
#include "combine/weak_frame.h"

#include <cmath>
#include <memory>

#include <gtest/gtest.h>

#include "channels.h"
#include "combine/combiner.h"
#include "kosc/kosc.hpp"

namespace {

using namespace kosc;

// Pilots alone take a third of these drifts for one that lies 642 ppm away.
TEST(WeakFrame, IsTurnedByTheDriftThatItsPrefixesTell)
{
    constexpr uint32_t FRAMES = 60, START = 1000, RING = 32768, PIECE = 1024;
    constexpr double RMS = 1500, SNR_DB = -4;
    const context_ptr ctx{soundcomm_init(soundcomm_default_cfg(), soundcomm_default_cfg())};
    const std::unique_ptr<combiner_t, void (*)(combiner_t*)> combiner{make_combiner(*ctx->rx_paras, 1), free_combiner};
    ASSERT_NE(combiner, nullptr);
    const auto pcm = encoder::make()->encode("which drift is it?");
    const kosc_link::signal frame(pcm->begin(), pcm->end());
    band_mixer mixer;
    init_band_mixer(384, &mixer);
    kosc_link::random_source random{5};
    uint32_t right = 0;
    for (uint32_t n = 0; n < FRAMES; ++n) {
        const double ppm = 8000 * random.uniform() - 4000;
        kosc_link::signal sound = kosc_link::drift(frame, ppm, ppm, 0, 0);
        kosc_link::scale(&sound, RMS / std::sqrt(kosc_link::mean_power(sound, 0, FRAME_SAMPLES)));
        sound.insert(sound.begin(), START, 0.0);
        sound.resize(16 * PIECE);
        kosc_link::add_noise(
            &sound, kosc_link::noise_variance(RMS * RMS, SNR_DB, kosc_link::NEAR_ULTRASONIC, SAMPLE_RATE), &random);
        const std::vector<int16_t> heard = kosc_link::to_pcm(sound);
        std::vector<int16_t> raw(RING);
        std::vector<float> re(RING / DECIMATION), im(RING / DECIMATION);
        microphone input{raw.data(), re.data(), im.data(), RING, 0, 0};
        for (uint32_t at = 0; at < heard.size(); at += PIECE) {
            take_samples(mixer, &heard[at], PIECE, &input);
        }
        const microphone* const inputs[] = {&input};
        const uint32_t number = 0;
        const double hypothesis = // one step off, as noise makes it
            (std::round(1e-6 * ppm / SEARCH_RATE_STEP) + (n % 2 == 0 ? 1 : -1)) * SEARCH_RATE_STEP;
        weak_frame found[MAX_INPUTS];
        right += take_weak_frames(inputs, &number, 1, {1.0F, {START, 0.0}, hypothesis}, maker_of(combiner.get()),
                                  found) == 1 &&
                         std::fabs(1e6 * found[0].rate - ppm) < 200
                     ? 1
                     : 0;
    }
    EXPECT_GE(right, FRAMES - 2);
}

// Of two messages whose CRCs are the same and whose code bits hardly differ, a frame half way between them tells none.
TEST(WeakFrame, IsRefusedWhereItCouldAsWellBeAnotherMessage)
{
    const context_ptr ctx{soundcomm_init(soundcomm_default_cfg(), soundcomm_default_cfg())};
    const std::unique_ptr<combiner_t, void (*)(combiner_t*)> combiner{make_combiner(*ctx->rx_paras, 1), free_combiner};
    ASSERT_NE(combiner, nullptr);
    weak_frame_maker* const maker = maker_of(combiner.get());
    uint8_t one[WEAK_MSG_LEN + 1] = "either this one or the other";
    constexpr size_t VALUES = size_t{2} * WEAK_SYMBOLS * WEAK_SC_NUM;
    send_message(one, combiner.get());
    const std::vector<double> sent(maker->sent, maker->sent + VALUES);
    uint8_t other[WEAK_MSG_LEN + 1];
    std::copy_n(one, sizeof one, other);
    other[24] ^= 0x01;
    other[25] ^= 0x40;
    other[27] ^= 0x60;
    send_message(other, combiner.get());
    const std::vector<double> rival(maker->sent, maker->sent + VALUES);
    EXPECT_NE(sent, rival);
    kosc_link::random_source random{7};
    for (const double share : {1.0, 0.5}) {
        restart_combiner(combiner.get());
        for (size_t i = 0; i < VALUES; ++i) {
            const double noise = sent[i] == rival[i] ? 0.5 * random.gaussian() : 0.0; // which else would decide
            maker->channel.received[i] = share * sent[i] + (1 - share) * rival[i] + noise;
        }
        weak_frame frame{};
        frame.coherence = 0.2;
        take_received(maker, &frame);
        uint32_t delivered = 0;
        take_frame_heard(
            &frame, 1, [](const recovered_message&, void* user) { ++*static_cast<uint32_t*>(user); }, &delivered,
            combiner.get());
        EXPECT_EQ(delivered, share == 1.0 ? 1U : 0U);
        EXPECT_EQ(counts_of(*combiner).refused > 0, share != 1.0);
    }
}

} // namespace
