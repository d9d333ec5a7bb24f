#include "kosc/kosc.hpp"

#include "channels.h"
#include "support/modem.h"

namespace {

// What a receiver hands out, as lines.
struct notes {
    text_list messages, failed;
    auto on_message()
    {
        return [this](const kosc::heard& frame) {
            EXPECT_EQ(frame.bytes().size(), kosc::MESSAGE_BYTES);
            // Motion pulls the synchronisation peak along, so only a resting sender's place is known to the sample.
            const std::string place = frame.report.quality.needed ? "again" : std::to_string(frame.sample);
            messages.push_back(std::to_string(frame.channel) + " " + place + " " + std::string{frame.text()});
        };
    }
    auto on_failed()
    {
        return [this](const kosc::heard& frame) {
            failed.push_back(std::to_string(frame.channel) + " " + std::to_string(frame.sample));
        };
    }
};

pcm frame_of(const std::string& text, uint32_t first = kosc::DEFAULT_SUBCARRIER)
{
    const auto encoder = kosc::encoder::make(first);
    const auto frame = encoder ? encoder->encode(text) : encoder.why();
    return frame ? *frame : pcm{};
}

TEST(KoscHpp, KnowsTheBuiltInModem)
{
    audio_para_t play{}, record{};
    ASSERT_EQ(ko_soundcommu_get_audio_para(&play, &record), 0);
    EXPECT_EQ(kosc::SAMPLE_RATE, play.sample_rate);
    EXPECT_EQ(2 * kosc::FRAME_SAMPLES, play.frame_bytes);
    EXPECT_EQ(kosc::MESSAGE_BYTES, soundcomm_default_cfg()->msg_byte_len);
    EXPECT_EQ(kosc::DEFAULT_SUBCARRIER, soundcomm_default_cfg()->ofdm_cfg.sc_start_idx);
    EXPECT_EQ(frame_of("same"), host{}.frame("same"));
}

TEST(KoscHpp, SaysWhyNot)
{
    const log_capture quiet{0};
    const std::pair<kosc::error, kosc::error> cases[] = {
        {kosc::encoder::make(5).why(), kosc::error::band},
        {kosc::encoder::make()->encode("29 bytes are one byte too many").why(), kosc::error::length},
        {kosc::receiver::make({0, 384, 0, false}).why(), kosc::error::length},
        {kosc::receiver::make({1, 439, 0, false}).why(), kosc::error::band},
        {kosc::receiver::make()->push_channel(1, nullptr, 0, [](const kosc::heard&) {}), kosc::error::channel},
        {kosc::receiver::make()->push(nullptr, 9, [](const kosc::heard&) {}), kosc::error::modem},
        {kosc::receiver::make()->push(nullptr, 0, [](const kosc::heard&) {}), kosc::error::none},
        {kosc::receiver::make().why(), kosc::error::none},
    };
    for (const auto& [why, expected] : cases) {
        EXPECT_STREQ(kosc::describe(why), kosc::describe(expected)) << "case " << &why - &cases[0].first;
    }
}

// Three interleaved channels: one whose first frame lacks its first 150 samples, one with a sender in motion and a
// frame whose CRCs fail, and one in another band, which nobody here listens to.
TEST(KoscHpp, HearsInterleavedChannelsOfARecordingThatIsCut)
{
    const log_capture quiet{0};
    const context_ptr modem = make_context();
    const pcm whole = frame_of("cut off"), early{whole.begin() + 150, whole.end()};
    kosc_link::signal moving = kosc_link::drift(encode(modem.get(), message("walks")), 2500, 2500, 0, 0);
    kosc_link::scale(&moving, 15000);
    const pcm sound = interleave({join({early, silence(31), frame_of("last")}),
                                  join({silence(77), kosc_link::to_pcm(moving), silence(50), bad_frame()}),
                                  frame_of("elsewhere", 128)});
    for (const size_t block : {sound.size() / 3, size_t{5000}}) {
        auto made = kosc::receiver::make({3, kosc::DEFAULT_SUBCARRIER, KOSC_SECOND_LOOK_ON, true});
        ASSERT_TRUE(made);
        kosc::receiver receiver = std::move(*made);
        notes heard;
        for (size_t at = 0; at < sound.size(); at += 3 * block) {
            const size_t count = std::min(block, (sound.size() - at) / 3);
            EXPECT_EQ(receiver.push(&sound[at], count, heard.on_message(), heard.on_failed()), kosc::error::none);
        }
        EXPECT_EQ(receiver.finish(heard.on_message(), heard.on_failed()), kosc::error::none);
        std::sort(heard.messages.begin(), heard.messages.end());
        EXPECT_EQ(heard.messages, (text_list{"0 -150 cut off", "0 11401 last", "1 again walks"}));
        EXPECT_EQ(heard.failed, text_list{"1 " + std::to_string(127 + moving.size())});
    }
}

} // namespace
