#include "kosc/kosc.h"

#include <cmath>
#include <cstring>
#include <memory>

#include "channels.h"
#include "support/modem.h"

namespace {

using options_t = ko_soundcommu_options_t;

options_t default_options(uint32_t size = sizeof(options_t))
{
    options_t options{};
    ko_soundcommu_default_options(&options, size);
    return options;
}

// Collects what all its handles hear, in one function, each message with its channel behind it.
struct listener {
    explicit listener(options_t options)
    {
        options.user = this;
        options.on_messages = [](const decode_result_t* results, uint32_t count, uint32_t channel, void* user) {
            for (uint32_t i = 0; i < count; ++i) {
                static_cast<listener*>(user)->heard.push_back(list(results[i].msg, results[i].len));
                static_cast<listener*>(user)->heard.back().push_back(static_cast<uint8_t>(channel));
            }
        };
        handle.reset(ko_soundcommu_init_with(&options));
    }
    pcm frame(const std::string& text) const
    {
        pcm sound(FRAME_LEN);
        EXPECT_EQ(ko_soundcommu_encode(handle.get(), message(text).data(), MSG_LEN, sound.data(), 2 * FRAME_LEN), 0);
        return sound;
    }
    void hear(const pcm& sound, int channel) const
    {
        EXPECT_EQ(ko_soundcommu_decode(handle.get(), sound.data(), static_cast<int>(2 * sound.size()), channel), 0);
    }
    handle_ptr handle;
    message_list heard;
};

byte_list on_channel(const std::string& text, uint8_t channel)
{
    byte_list expected = message(text);
    expected.push_back(channel);
    return expected;
}

TEST(Options, RefuseWhatTheLibraryDoesNotKnow)
{
    const log_capture log{KOSC_LEVEL_ERROR};
    const auto inits = [](uint32_t size, uint32_t first) {
        options_t options = default_options();
        options.size = size;
        options.first_subcarrier = first;
        return handle_ptr{ko_soundcommu_init_with(&options)} != nullptr;
    };
    const uint32_t known = sizeof(options_t);
    const std::string newer = std::to_string(known + 1), all = std::to_string(known);
    expect_refusals({
        {[] { return ko_soundcommu_init_with(nullptr) != nullptr; }, {"options is NULL"}},
        {[=] { return inits(0, 0); }, {"options have size 0; fill them with ko_soundcommu_default_options()"}},
        {[=] { return inits(known + 1, 0); },
         {"options have size " + newer + ", but this library knows only " + all + " bytes of them"}},
        {[=] { return inits(known, 439); },
         {"a band from subcarrier 439 on does not lie between 250 and 23500 Hz; the first subcarrier is 6 to 438"}},
    });
    EXPECT_TRUE(inits(7, 439)) << "a host without that field means the default";
    EXPECT_FALSE(inits(8, 439));
    log_capture::clear();

    struct {
        options_t options;
        uint8_t behind[9];
    } larger;
    std::memset(&larger, 0x55, sizeof larger);
    ko_soundcommu_default_options(&larger.options, known + 8);
    EXPECT_EQ(list(larger.behind, 9), (byte_list{0, 0, 0, 0, 0, 0, 0, 0, 0x55}));
    EXPECT_EQ(ko_soundcommu_init_with(&larger.options), nullptr);
    EXPECT_EQ(default_options(3).size, 0U);
    ko_soundcommu_default_options(nullptr, known);
}

TEST(Options, ByDefaultMakeTheHandleOfTheShortCall)
{
    const log_capture quiet{0};
    host plain;
    listener other{default_options()};
    EXPECT_EQ(other.frame("same"), plain.frame("same"));
    const pcm sound = join({silence(700), plain.frame("one"), silence(50), plain.frame("two"), silence(9000)});
    EXPECT_EQ(plain.decode(sound, 1), 0);
    other.hear(sound, 1);
    EXPECT_EQ(plain.deliveries().back().messages, (message_list{message("one"), message("two")}));
    EXPECT_EQ(other.heard, (message_list{on_channel("one", 1), on_channel("two", 1)}));
    const options_t options = default_options(); // no callback at all
    const handle_ptr deaf{ko_soundcommu_init_with(&options)};
    EXPECT_EQ(ko_soundcommu_decode(deaf.get(), sound.data(), static_cast<int>(2 * sound.size()), 0), 0);
    EXPECT_EQ(deaf.get()->result[0].correct.count, 2U);
}

// Bands side by side, and a sound that holds a frame of each at the same time, in noise that the first receiver hears
// them through; then in motion, for the second look.
TEST(Options, HearEachBandAndNoOtherWhenAllSpeakAtOnce)
{
    const log_capture quiet{0};
    const count_list groups[] = {{8, 128, 384}, {43, 250}, {6, 73, 138, 300, 438}};
    for (const count_list& group : groups) {
        for (const double ppm : {0.0, 2500.0}) {
            std::vector<std::unique_ptr<listener>> listeners;
            kosc_link::signal sum(3 * FRAME_LEN);
            for (const uint32_t first : group) {
                options_t options = default_options();
                options.first_subcarrier = first;
                options.second_look = ppm != 0;
                listeners.push_back(std::make_unique<listener>(options));
                const pcm frame = listeners.back()->frame(std::to_string(first));
                kosc_link::signal sound = kosc_link::drift({frame.begin(), frame.end()}, ppm, ppm, 0, 0);
                kosc_link::scale(&sound, 1500 / std::sqrt(kosc_link::mean_power(sound, 0, FRAME_LEN)));
                for (size_t i = 0; i < sound.size(); ++i) {
                    sum[1000 + i] += sound[i];
                }
            }
            kosc_link::random_source random{group[0]};
            kosc_link::add_noise(&sum, kosc_link::noise_variance(1500.0 * 1500, 9, {18000, 20953}, 48000), &random);
            for (size_t i = 0; i < group.size(); ++i) {
                SCOPED_TRACE(testing::Message() << "subcarrier " << group[i] << ", " << ppm << " ppm");
                const auto channel = static_cast<uint8_t>(i % 2);
                listeners[i]->hear(kosc_link::to_pcm(sum), channel);
                EXPECT_EQ(listeners[i]->heard, message_list{on_channel(std::to_string(group[i]), channel)});
            }
        }
    }
}

} // namespace
