#include "kosc/kosc.h"

#include <cmath>
#include <cstring>

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
    host plain, other{default_options()};
    const options_t options = default_options(); // no callback at all
    const handle_ptr deaf{ko_soundcommu_init_with(&options)};
    const pcm sound = join({silence(700), plain.frame("one"), silence(50), other.frame("two"), silence(9000)});
    for (host* h : {&plain, &other}) {
        EXPECT_EQ(h->frame("same"), plain.frame("same"));
        EXPECT_EQ(h->hear({FRAME_LEN}, sound, 1).messages, (message_list{message("one"), message("two")}));
    }
    EXPECT_EQ(ko_soundcommu_decode(deaf.get(), sound.data(), static_cast<int>(2 * sound.size()), 0), 0);
    EXPECT_EQ(deaf->result[0].correct.count, 2U);
}

// Bands side by side, and a sound that holds a frame of each at the same time, in noise that the first receiver hears
// them through; then in motion, for the second look.
TEST(Options, HearEachBandAndNoOtherWhenAllSpeakAtOnce)
{
    const log_capture quiet{0};
    const count_list groups[] = {{7, 128, 272, 384}, {43, 200}, {6, 73, 138, 300, 438}};
    for (const count_list& group : groups) {
        for (const double ppm : {0.0, 2500.0}) {
            std::vector<host> hosts;
            kosc_link::signal sum(3 * FRAME_LEN);
            for (const uint32_t first : group) {
                options_t options = default_options();
                options.first_subcarrier = first;
                options.second_look = ppm != 0;
                const pcm frame = hosts.emplace_back(options).frame(std::to_string(first));
                kosc_link::signal sound = kosc_link::drift({frame.begin(), frame.end()}, ppm, ppm, 0, 0);
                kosc_link::scale(&sound, 1500 / std::sqrt(kosc_link::mean_power(sound, 0, FRAME_LEN)));
                std::transform(sound.begin(), sound.end(), &sum[1000], &sum[1000], std::plus<>());
            }
            kosc_link::random_source random{group[0]};
            kosc_link::add_noise(&sum, kosc_link::noise_variance(1500.0 * 1500, 9, kosc_link::NEAR_ULTRASONIC, 48000),
                                 &random);
            for (size_t i = 0; i < group.size(); ++i) {
                SCOPED_TRACE(testing::Message() << "subcarrier " << group[i] << ", " << ppm << " ppm");
                const heard result = hosts[i].hear({4096}, kosc_link::to_pcm(sum), static_cast<int>(i % 2));
                EXPECT_EQ(result.messages, message_list{message(std::to_string(group[i]))});
            }
        }
    }
}

} // namespace
