#include "kosc/crowd.h"

#include "crowd.h"
#include "support/modem.h"

namespace {

using kosc_link::listener;
using kosc_link::overlap;
using kosc_link::surroundings;

constexpr listener SECOND_LOOK = {"", KOSC_SECOND_LOOK_ON, KOSC_CROWD_OFF};
constexpr listener EVERY_PEAK = {"", KOSC_SECOND_LOOK_ON, KOSC_CROWD_PEAKS};
constexpr listener CANCELLING = {"", KOSC_SECOND_LOOK_ON, KOSC_CROWD_CANCEL};

// Whole recordings: messages in, sound out, over each other through rooms and clocks, and all of them back; in blocks
// of two lengths. `peaks` is how many are heard with every peak tried, over all trials, at least.
TEST(Crowd, HearsAllFramesThatLieOverEachOther)
{
    const log_capture quiet{0};
    constexpr uint32_t TRIALS = 3;
    const struct {
        const char* name;
        overlap o;
        uint32_t peaks;
    } cases[] = {
        {"a faint frame under a loud one", {surroundings::CLEAN, 2, 3000, 10, 20, 0}, 3},
        {"starts within the prefix", {surroundings::CLEAN, 2, 100, 6, 20, 0}, 3},
        {"equally loud", {surroundings::CLEAN, 2, 5760, 0, 20, 0}, 6},
        {"through echoes", {surroundings::ECHOES, 2, 1000, 6, 10, 0}, 3},
        {"in a room", {surroundings::ROOM, 2, 10000, 10, 20, 0}, 3},
        {"in a room, 20 dB apart", {surroundings::ROOM, 2, 3000, 20, 20, 0}, 3},
        {"padded: they look like each other's echoes", {surroundings::CLEAN, 2, 1000, 3, 20, 20}, 3},
        {"three", {surroundings::CLEAN, 3, 5760, 6, 20, 0}, 3},
        {"three, the faintest 20 dB under the loudest", {surroundings::CLEAN, 3, 500, 10, 20, 0}, 3},
    };
    for (const auto& c : cases) {
        uint32_t plain = 0, peaks = 0;
        for (uint32_t seed = 0; seed < TRIALS; ++seed) {
            SCOPED_TRACE(testing::Message() << c.name << ", seed " << seed);
            const kosc_link::crowd_recording sound = kosc_link::make_overlap(c.o, seed);
            plain += listen(sound, SECOND_LOOK, 4096).delivered;
            peaks += listen(sound, EVERY_PEAK, 4096).delivered;
            for (const uint32_t block : {480U, 4096U}) {
                const kosc_link::heard_crowd heard = listen(sound, CANCELLING, block);
                EXPECT_EQ(heard.delivered, c.o.senders);
                EXPECT_EQ(heard.wrong + heard.repeated, 0U);
                EXPECT_LE(heard.counts.cancelled, 3 * c.o.senders);
            }
        }
        EXPECT_LT(plain, TRIALS * c.o.senders) << c.name << ": else the case is too easy";
        EXPECT_GE(peaks, c.peaks) << c.name;
    }
}

// Neither noise, nor a clock that is off, nor a room's tail is taken for another frame, which would cost two
// cancellations.
TEST(Crowd, CancelsNothingOfFramesThatAreAlone)
{
    const log_capture quiet{0};
    for (const surroundings where : {surroundings::CLEAN, surroundings::ECHOES, surroundings::ROOM}) {
        for (const double snr : {5.0, 10.0, 20.0, 40.0}) {
            SCOPED_TRACE(testing::Message() << "surroundings " << static_cast<int>(where) << ", " << snr << " dB");
            const kosc_link::crowd_recording sound = kosc_link::make_frames_apart({where, 6, snr}, 2);
            const kosc_link::heard_crowd heard = listen(sound, CANCELLING, 480);
            EXPECT_EQ(heard.delivered, 6U);
            EXPECT_EQ(heard.counts.cancelled, 0U);
        }
    }
}

// What a receiver says of a recording: each frame, as "sample verdict text", after the block that it came with.
text_list reports(const pcm& sound, const std::function<void(soundcomm_context_t*)>& prepare)
{
    const context_ptr ctx = kosc::make_receiving_context(KOSC_SECOND_LOOK_ON);
    prepare(ctx.get());
    text_list lines;
    const auto note = [](const frame_report_t* f, void* user) {
        auto& all = *static_cast<text_list*>(user);
        all.push_back(std::to_string(f->sample) + " " + std::to_string(f->verdict) +
                      (f->verdict == 1 ? " " + std::string(f->msg, f->msg + 8) : ""));
    };
    soundcomm_set_frame_callback(ctx.get(), note, &lines);
    for (size_t at = 0; at < sound.size(); at += 480) {
        result_set_t results{};
        EXPECT_EQ(soundcomm_receive(ctx.get(), &sound[at],
                                    static_cast<uint32_t>(std::min<size_t>(480, sound.size() - at)), &results),
                  0);
        lines.push_back("block");
    }
    return lines;
}

pcm frames_apart()
{
    host h;
    const pcm noisy = kosc_link::to_pcm([&] {
        kosc_link::signal s(60000);
        kosc_link::random_source random{3};
        kosc_link::add_noise(&s, 900, &random);
        return s;
    }());
    pcm sound = join({silence(500), h.frame("first"), silence(60), h.frame("second"), silence(700), bad_frame(),
                      silence(5000), h.frame("third"), h.frame("third"), silence(30000)});
    for (size_t i = 0; i < sound.size(); ++i) {
        sound[i] = static_cast<int16_t>(sound[i] / 2 + noisy[i % noisy.size()]);
    }
    return sound;
}

// Frames that nothing covers, one of them sent twice in a row and one that fails: the same reports, none later.
TEST(Crowd, HearsFramesApartAsBeforeAndNoLater)
{
    const log_capture quiet{0};
    const pcm sound = frames_apart();
    const text_list plain = reports(sound, [](auto*) {});
    const auto place = [](const text_list& lines, const std::string& line) {
        return std::count(lines.begin(), std::find(lines.begin(), lines.end(), line), "block");
    };
    for (const uint32_t mode : {KOSC_CROWD_PEAKS, KOSC_CROWD_CANCEL}) {
        const text_list crowd = reports(sound, [=](auto* ctx) { EXPECT_TRUE(soundcomm_config_crowd(ctx, mode)); });
        text_list found;
        std::copy_if(crowd.begin(), crowd.end(), std::back_inserter(found), [](auto& l) { return l != "block"; });
        EXPECT_EQ(found.size(), 5U);
        for (const auto& line : found) {
            EXPECT_NE(std::find(plain.begin(), plain.end(), line), plain.end()) << line;
            EXPECT_LE(place(crowd, line), place(plain, line)) << line;
        }
    }
}

// What is left of frames that were cancelled adds up; a canceller that leaves 2 dB more loses nine of these.
TEST(Crowd, HearsNearlyAllOfManyThatSendAtRandom)
{
    const log_capture quiet{0};
    kosc_link::random_access devices;
    devices.seconds = 8;
    devices.load = 1.5;
    devices.snr_db = 20;
    const kosc_link::crowd_recording sound = kosc_link::make_random_access(devices, 3);
    const kosc_link::heard_crowd heard = listen(sound, CANCELLING, 4096);
    EXPECT_GE(heard.delivered + 3, sound.sent.size());
    EXPECT_EQ(heard.wrong + heard.repeated, 0U);
}

TEST(Crowd, ChangesNothingWhenItIsOff)
{
    const log_capture quiet{0};
    const pcm sound = frames_apart();
    const text_list plain = reports(sound, [](auto*) {});
    EXPECT_EQ(reports(sound,
                      [](auto* ctx) {
                          EXPECT_TRUE(soundcomm_config_crowd(ctx, KOSC_CROWD_CANCEL));
                          EXPECT_TRUE(soundcomm_config_crowd(ctx, KOSC_CROWD_OFF));
                      }),
              plain);
}

// Switched in the middle of a recording, with frames half received, a second look that goes away, and a new start:
// every message comes once.
TEST(Crowd, MayBeSwitchedAtAnyTime)
{
    const log_capture quiet{0};
    const pcm sound = frames_apart();
    for (const size_t at : {4000U, 9000U, 12500U, 16000U, 25000U}) {
        host h;
        ASSERT_EQ(ko_soundcommu_config_second_look(h.get(), 1), 0);
        message_list all;
        const auto hear = [&](size_t from, size_t to) {
            const heard part = h.hear({480}, {&sound[from], &sound[to]});
            all.insert(all.end(), part.messages.begin(), part.messages.end());
        };
        hear(0, at);
        EXPECT_EQ(ko_soundcommu_config_crowd(h.get(), KOSC_CROWD_CANCEL), 0);
        hear(at, at + 7000);
        EXPECT_EQ(ko_soundcommu_config_second_look(h.get(), 0), 0);
        hear(at + 7000, at + 9000);
        EXPECT_EQ(ko_soundcommu_config_crowd(h.get(), KOSC_CROWD_OFF), 0);
        hear(at + 9000, sound.size() - 1);
        EXPECT_EQ(all, (message_list{message("first"), message("second"), message("third"), message("third")})) << at;
    }
}

TEST(Crowd, RefusesInOneSentenceAndGoesOnWithout)
{
    const log_capture log{KOSC_LEVEL_WARN};
    const text_list unfit = {"WARN no crowd for this configuration"};
    const struct {
        edit change;
        uint32_t corr_step;
        uint32_t second_look;
        text_list says;
    } cases[] = {
        {[](auto&) {}, 1, 0, {"WARN no crowd without the second look"}},
        {[](auto&) {}, 2, 1, unfit},
        {[](auto& cfg) { cfg.ofdm_cfg.papr = KOSC_PAPR_DFT_SPREAD; }, 1, 1, unfit},
        {[](auto& cfg) { cfg.msg_byte_len = 92; }, 1, 1, unfit}, // a frame too long for a block
        {[](auto& cfg) { cfg.ofdm_cfg.cp_len = 257; }, 1, 1, unfit},
    };
    for (const auto& c : cases) {
        for (const bool before : {false, true}) { // configured before reception is prepared
            SCOPED_TRACE(testing::Message() << "case " << &c - cases << (before ? ", before" : ""));
            const context_ptr ctx = make_context(c.change);
            const auto init = [&] { return soundcomm_init_receive(ctx.get(), {0.4, 20, c.corr_step}, {2, 1, 48000}); };
            ASSERT_TRUE(before || init());
            ASSERT_TRUE(soundcomm_config_second_look(ctx.get(), c.second_look));
            log_capture::clear();
            EXPECT_EQ(soundcomm_config_crowd(ctx.get(), KOSC_CROWD_CANCEL), before && c.corr_step == 2);
            ASSERT_TRUE(!before || init());
            EXPECT_EQ(logged(), c.says);
            EXPECT_EQ(ctx->rx_paras->crowd, nullptr);
            const uint32_t len = ctx->rx_paras->cfg.msg_byte_len;
            const pcm sound = join({silence(99), render(encode(ctx.get(), message("still", len))), silence(3000)});
            result_set_t results{};
            EXPECT_EQ(soundcomm_receive(ctx.get(), sound.data(), static_cast<uint32_t>(sound.size()), &results), 0);
            EXPECT_EQ(results.correct.count, 1U);
        }
    }
    host h;
    const auto inits = [](uint32_t second_look, uint32_t crowd) {
        ko_soundcommu_options_t options{};
        ko_soundcommu_default_options(&options, sizeof options);
        options.second_look = second_look;
        options.crowd = crowd;
        return handle_ptr{ko_soundcommu_init_with(&options)} != nullptr;
    };
    EXPECT_TRUE(inits(1, 2) && !inits(0, 1));
    expect_refusals({
        {[] { return soundcomm_config_crowd(nullptr, 1); }, {"ctx is null"}},
        {[&] { return soundcomm_config_crowd(h.get()->ctx[0], 3); }, {"crowd mode 3 is none"}},
        {[] { return ko_soundcommu_config_crowd(nullptr, 1) == 0; }, {"kosc is NULL"}},
        {[&] { return ko_soundcommu_config_crowd(h.get(), 3) == 0; }, {"crowd mode 3 is none"}},
        {[=] { return inits(1, 3); }, {"crowd mode 3 is none"}},
    });
    EXPECT_EQ(soundcomm_get_crowd_counts(nullptr).tried, 0U);
}

} // namespace
