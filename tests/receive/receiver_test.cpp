#include "kosc/receiver.h"

#include <array>
#include <cmath>

#include "channels.h"
#include "support/modem.h"

namespace {

const rx_sync_paras DEFAULT_SYNC = {0.4, 20, 1};

// A context that listens, and the result set it fills.
struct receiver {
    explicit receiver(context_ptr context = make_context(), rx_sync_paras sync = DEFAULT_SYNC, uint32_t tracks = 1,
                      uint32_t decode_type = KOSC_DECODE_FIRST_TRACK)
        : ctx{std::move(context)}, len{ctx->rx_paras->cfg.msg_byte_len}
    {
        EXPECT_TRUE(soundcomm_init_receive(ctx.get(), sync, {2, tracks, 48000}));
        const auto part = [this](size_t i) { return result_part_t{store[i].data(), 99, 0}; };
        results = {decode_type, part(0), part(1), {part(2), part(3)}};
    }
    pcm frame(const std::string& text) const { return render(encode(ctx.get(), message(text, len))); }
    int hear(const pcm& sound)
    {
        const auto samples = static_cast<uint32_t>(sound.size()) / ctx->rx_paras->track_num;
        return soundcomm_receive(ctx.get(), sound.data(), samples, &results);
    }
    text_list stored(const result_part_t& part) const
    {
        text_list all;
        for (uint32_t i = 0; i < part.count; ++i) {
            all.emplace_back(reinterpret_cast<const char*>(part.buffer) + i * len); // up to the first zero byte
        }
        return all;
    }

    context_ptr ctx;
    uint32_t len;
    std::array<byte_list, 4> store{byte_list(99), byte_list(99), byte_list(99), byte_list(99)};
    result_set_t results{};
};

void set_code(soundcomm_cfg_t& cfg, uint32_t constraint, const uint32_t* polynomials, uint32_t count)
{
    cfg.channel_code_cfg.paras.conv = {constraint, polynomials, count};
}

void set_ofdm(soundcomm_cfg_t& cfg, uint32_t symbol, uint32_t prefix, uint32_t first, uint32_t count, int32_t papr)
{
    cfg.ofdm_cfg = {symbol, prefix, first, count, papr};
}

constexpr uint32_t SHORT_CODE[] = {7, 7, 5}, HALF_RATE_CODE[] = {109, 79}, LONG_CODE[] = {367, 435, 457};

// The refinement reaches every position between two computed ones, so that any step finds the same start. A recording
// may lack a frame's first samples and its last ones.
TEST(Receiver, HearsEveryConfigurationAtAnyCorrelationStep)
{
    const edit cases[] = {
        [](auto&) {},
        [](auto& c) { set_code(c, 3, SHORT_CODE, 3), c.ofdm_cfg.papr = KOSC_PAPR_NONE; },
        [](auto& c) { set_code(c, 9, LONG_CODE, 3), c.ofdm_cfg.papr = KOSC_PAPR_SHORT_PATTERN; },
        [](auto& c) { set_code(c, 7, HALF_RATE_CODE, 2), c.ofdm_cfg.papr = KOSC_PAPR_DFT_SPREAD; },
        [](auto& c) { use_block_code(c), c.ofdm_cfg.papr = KOSC_PAPR_NONE; },
        [](auto& c) { use_block_code(c), c.ofdm_cfg.papr = KOSC_PAPR_DFT_SPREAD; },
        [](auto& c) { use_block_code(c), c.ofdm_cfg.papr = KOSC_PAPR_LONG_PATTERN; },
        [](auto& c) { c.crc_cfg.group = 1, c.msg_byte_len = 30, c.interleaver_cfg.stride = 48; },
        [](auto& c) { c.crc_cfg.group = 4, c.msg_byte_len = 24, c.fade_cfg.enable = 0; },
        [](auto& c) { c.crc_cfg.bits = 8, c.ofdm_cfg.sc_num = 60, c.fade_cfg.enable = 2; },
        [](auto& c) { c.crc_cfg.bits = 24, c.ofdm_cfg.sc_num = 68, c.fade_cfg.len = 0; },
        [](auto& c) { set_ofdm(c, 512, 128, 192, 32, KOSC_PAPR_LONG_PATTERN); },
        [](auto& c) { set_ofdm(c, 2048, 300, 700, 128, KOSC_PAPR_DFT_SPREAD); },
        [](auto& c) { set_ofdm(c, 1024, 256, 300, 192, KOSC_PAPR_NONE), c.pilot_cfg.data_pilot_rate = 4; },
        [](auto& c) { set_ofdm(c, 1024, 168, 40, 64, KOSC_PAPR_LONG_PATTERN); }, // low: loud sounds are not taken out
        [](auto& c) { set_ofdm(c, 1024, 1020, 300, 192, KOSC_PAPR_LONG_PATTERN); }, // one pilot
        [](auto& c) { c.pilot_cfg.data_pilot_rate = 1, c.fade_cfg = {}; },
    };
    const log_capture log;
    for (const edit& change : cases) {
        // The last two only with the second look: their pilots are found at their prefixes, or among each other.
        const count_list steps = &change < std::end(cases) - 2 ? count_list{1, 5} : count_list{};
        for (const uint32_t step : steps) {
            SCOPED_TRACE(testing::Message() << "configuration " << &change - cases << ", step " << step);
            receiver r{make_context(change), {0.4, 20, step}};
            const pcm frame = r.frame("found");
            const uint32_t around = soundcomm_get_silence_around(r.ctx.get());
            const uint32_t cut = around % 5 + 4; // the frame starts between two positions of a step of 5
            log_capture::clear();
            EXPECT_EQ(r.hear(join({silence(around), pcm(frame.begin() + cut, frame.end() - cut), silence(around)})), 0);
            EXPECT_EQ(r.stored(r.results.correct), text_list{"found"});
            EXPECT_EQ(logged_offsets(), text_list{"DEBUG Global offset: " + std::to_string(around - cut)});
            EXPECT_EQ(logged("INFO][Adjacent peak_offset ").empty(), step == 1);
        }
        // The second look, through an echo that makes subcarriers fade: gains from 0.1 to 1.9.
        const context_ptr ctx = make_context(change);
        const bool convolutional = ctx->rx_paras->cfg.channel_code_cfg.type == KOSC_CODE_CONV;
        ASSERT_EQ(soundcomm_config_second_look(ctx.get(), KOSC_SECOND_LOOK_ON), convolutional);
        if (convolutional) {
            byte_list msg = message("any shape", ctx->rx_paras->cfg.msg_byte_len), found(msg.size());
            const double_list sound = kosc_link::apply_taps(encode(ctx.get(), msg), {{0, 1.0}, {40, 0.9}});
            frame_quality_t quality{};
            EXPECT_EQ(soundcomm_decode_second_look(ctx.get(), sound.data(), static_cast<uint32_t>(sound.size()),
                                                   found.data(), static_cast<uint32_t>(found.size()), &quality),
                      1U);
            EXPECT_EQ(found, msg);
            EXPECT_NEAR(quality.drift_ppm, 0.0, 30.0);
            EXPECT_TRUE(std::isfinite(quality.snr_db) && std::isfinite(quality.evm) && quality.coherence <= 1.0);
        }
    }
}

TEST(Receiver, DecodesTheTracksThatTheTypeNames)
{
    const std::string error = "ERROR receive_data error";
    const std::tuple<uint32_t, uint32_t, text_list, text_list, text_list> cases[] = {
        {2, KOSC_DECODE_FIRST_TRACK, {"left", "more"}, {}, {}},
        {2, KOSC_DECODE_SECOND_TRACK, {"right"}, {}, {}},
        {2, KOSC_DECODE_BOTH_TRACKS, {"left", "more"}, {"right"}, {}},
        {2, KOSC_DECODE_MERGE, {}, {}, {"ERROR MERGE not supportted yet.", error}},
        {2, 9, {}, {}, {"ERROR Unknow decode type, using the first track.", error}},
        {1, KOSC_DECODE_SECOND_TRACK, {}, {}, {"ERROR Can't get the second track from a single track.", error}},
        {1, KOSC_DECODE_BOTH_TRACKS, {}, {}, {"ERROR Can't get dual results from a single track."}},
    };
    for (const auto& [tracks, type, first, second, errors] : cases) {
        SCOPED_TRACE(testing::Message() << tracks << " tracks, type " << type);
        const log_capture log{KOSC_LEVEL_WARN};
        receiver r{make_context(), DEFAULT_SYNC, tracks, type};
        const pcm left = join({silence(FRAME_LEN), r.frame("left"), silence(9000), r.frame("more"), silence(20000)});
        const pcm right = join({silence(5000), r.frame("right")});
        EXPECT_EQ(r.hear(tracks == 2 ? interleave({left, right}) : left), errors.empty() ? 0 : -1);
        EXPECT_EQ(r.stored(r.results.correct), first);
        EXPECT_EQ(r.stored(r.results.second.correct), second);
        EXPECT_EQ(logged(), errors);
    }
}

TEST(Receiver, CountsWhatItCannotStoreAndSaysWhatItDoes)
{
    const log_capture log;
    receiver r{make_context(), DEFAULT_SYNC, 2, KOSC_DECODE_BOTH_TRACKS};
    const pcm sound = interleave({join({r.frame("one"), r.frame("two"), bad_frame('x'), silence(3000)}), {}});
    r.results.correct = {r.store[0].data(), 2 * MSG_LEN - 1, 10};
    r.results.error.count = 5;
    EXPECT_EQ(r.hear(sound), 0);
    EXPECT_EQ(r.results.correct.count, 12U) << "added to what was there";
    EXPECT_EQ(r.results.error.count, 6U);
    EXPECT_EQ(r.store[0], message("one", 99)) << "nothing behind the message that fits";
    EXPECT_EQ(list(r.store[1].data(), 29), message(std::string(MSG_LEN, 'x'), 29));
    r.results.correct = r.results.error = {nullptr, 0, 0};
    EXPECT_EQ(r.hear(sound), 0);
    EXPECT_EQ(r.results.correct.count, 2U);
    EXPECT_EQ(logged("DEBUG][correct_output").size(), 1U) << "said of a buffer that is there";
    expect_logged({"DEBUG filter freq 17859.375000 21093.750000", "DEBUG Receive data_len 37560",
                   "DEBUG Next piece is 23040", "DEBUG Next piece is 14520", "DEBUG try to decode 1.",
                   "DEBUG try to decode 2.", "DEBUG Global offset: 11520", "INFO do_decode success",
                   "INFO do_decode CRC unmatch", "INFO Decoded 2 correct frame", "DEBUG Decoded 1 error frame",
                   "WARN No enough buffer(27) to put result of track (0)", "DEBUG correct_output is null.",
                   "DEBUG error_output is null."});
}

TEST(Receiver, ReportsEveryFrameThatItFinds)
{
    using found = std::tuple<uint64_t, uint32_t, uint32_t, uint32_t, std::string>;
    const log_capture quiet{0};
    std::vector<found> reports;
    receiver r{make_context(), DEFAULT_SYNC, 2, KOSC_DECODE_BOTH_TRACKS};
    ASSERT_TRUE(soundcomm_config_second_look(r.ctx.get(), KOSC_SECOND_LOOK_MEASURE));
    const auto collect = [](const frame_report_t* report, void* user) {
        const char* const text = reinterpret_cast<const char*>(report->msg);
        static_cast<std::vector<found>*>(user)->emplace_back(report->sample, report->track, report->verdict,
                                                             report->failed_crcs, std::string(text, 4));
        EXPECT_EQ(report->msg_len, MSG_LEN);
        EXPECT_GT(report->correlation, 0.9);
        EXPECT_EQ(report->quality.needed, report->verdict == 0);
        EXPECT_EQ(report->quality.decoded, report->verdict == 1);
        EXPECT_LT(report->quality.evm, 0.1);
        EXPECT_TRUE(report->samples[0] == 0 && report->samples[FRAME_LEN / 2] != 0);
    };
    soundcomm_set_frame_callback(r.ctx.get(), collect, &reports);
    const bytes_ptr with_crcs{add_crc(message("half").data(), MSG_LEN, &r.ctx->tx_paras->cfg.crc_cfg)};
    byte_list block = list(with_crcs->data, with_crcs->size);
    block[20] ^= 1; // in the second of two parts
    const pcm half = render(encode_block(r.ctx->tx_paras, block));
    r.results.correct = r.results.error = r.results.second.correct = {nullptr, 0, 0}; // reported all the same
    EXPECT_EQ(r.hear(interleave({join({silence(100), r.frame("left"), silence(FRAME_LEN)}), {}})), 0);
    data_container_reset(soundcomm_get_datacontainer(r.ctx->rx_paras, 1)); // which counts anew, unlike the receiver
    EXPECT_EQ(r.hear(interleave({silence(FRAME_LEN), half})), 0);
    EXPECT_EQ(r.hear(interleave({silence(2 * FRAME_LEN), {}})), 0);
    const uint64_t second_call = 2 * FRAME_LEN + 100;
    EXPECT_EQ(reports, (std::vector<found>{{100, 0, 1, 0, "left"}, {second_call, 1, 0, 2, "half"}}));
    soundcomm_set_frame_callback(r.ctx.get(), nullptr, nullptr);
    soundcomm_set_frame_callback(nullptr, collect, &reports);
    EXPECT_EQ(r.hear(interleave({r.frame("more"), {}})), 0);
    EXPECT_EQ(reports.size(), 2U);
}

TEST(Receiver, RefusesWhatItCannotPrepareOrHear)
{
    const log_capture log{KOSC_LEVEL_WARN};
    receiver r;
    const int16_t sample = 0;
    soundcomm_context_t* const ctx = r.ctx.get();
    EXPECT_EQ(soundcomm_receive(ctx, &sample, 0, &r.results), 0) << "nothing to do";
    EXPECT_EQ(soundcomm_decode_length(ctx, 3 * FRAME_LEN - 1), 4 * MSG_LEN);
    EXPECT_EQ(soundcomm_decode_length(nullptr, FRAME_LEN), 0U);
    EXPECT_EQ(soundcomm_get_silence_around(nullptr), 0U);
    const std::string missing = "receiver is not initialised";
    expect_refusals({
        {[&] { return soundcomm_receive(ctx, nullptr, 1, &r.results) != -1; }, {"input_data shouldn't be null"}},
        {[&] { return soundcomm_receive(nullptr, &sample, 1, &r.results) != -1; }, {missing}},
        {[&] { return soundcomm_receive(ctx, &sample, 1, nullptr) != -1; }, {missing}},
        {[&] {
             return soundcomm_init_receive(nullptr, DEFAULT_SYNC, {2, 1, 48000});
         },
         {"ctx is null"}},
        {[&] {
             return soundcomm_init_receive(ctx, DEFAULT_SYNC, {2, 3, 48000});
         },
         {"Invalid track count 3"}},
        {[&] { return init_receive_related(ctx, 2, 48000, 0); }, {"invalid sync handler paras", "Fail to init dc."}},
        {[&] { return soundcomm_receive(ctx, &sample, 1, &r.results) != -1; }, {missing}},
    });
}

// A buffer of one frame fills up when a frame starts too late in it to be whole there.
TEST(Receiver, DropsItsBuffersWhenAPieceDoesNotFitAndListensOn)
{
    const log_capture log{KOSC_LEVEL_WARN};
    receiver r{make_context(), DEFAULT_SYNC, 2, KOSC_DECODE_BOTH_TRACKS};
    const pcm sound = interleave({join({silence(100), r.frame("left")}), join({silence(200), r.frame("right")})});
    vector_push_back(soundcomm_get_datacontainer(r.ctx->rx_paras, 1)->data_norm, 0.0);
    EXPECT_EQ(r.hear(sound), -1);
    EXPECT_EQ(r.hear(sound), 0);
    EXPECT_EQ(r.stored(r.results.correct), text_list{"left"});
    EXPECT_EQ(r.stored(r.results.second.correct), text_list{"right"});
    r = receiver{};
    ASSERT_TRUE(init_receive_related(r.ctx.get(), 1, 48000, FRAME_LEN));
    EXPECT_EQ(r.hear(join({silence(100), r.frame("late"), silence(FRAME_LEN)})), -1);
    uint64_t start = 0; // of the frame in all that was handed over, also in calls that failed half way
    soundcomm_set_frame_callback(
        r.ctx.get(), [](const frame_report_t* f, void* user) { *static_cast<uint64_t*>(user) = f->sample; }, &start);
    EXPECT_EQ(r.hear(r.frame("prompt")), 0);
    EXPECT_EQ(r.stored(r.results.correct), text_list{"prompt"});
    EXPECT_EQ(start, 100U + 2 * FRAME_LEN);
    r.results.decode_type = KOSC_DECODE_MERGE;
    EXPECT_EQ(r.hear(silence(FRAME_LEN)), -1);
    EXPECT_EQ(r.hear(silence(1)), -1) << "with a full buffer";
    EXPECT_EQ(logged(),
              (text_list{"ERROR corrcoef len(0) should be same as data_norm (1)", "ERROR process_recvd_data failed 1.",
                         "WARN reset recv buffs.", "ERROR receive_data error", "WARN reset recv buffs.",
                         "ERROR receive_data error", "ERROR MERGE not supportted yet.", "ERROR receive_data error",
                         "WARN reset recv buffs.", "ERROR MERGE not supportted yet.", "ERROR receive_data error"}));
}

TEST(Receiver, SearchesWithTheBuiltInSettings)
{
    const log_capture quiet{0};
    const handle_ptr handle{ko_soundcommu_init([](auto, auto) {}, [](auto, auto) {})};
    const data_container* const container = soundcomm_get_datacontainer(handle->ctx[1]->rx_paras, 0);
    EXPECT_EQ(container->filter->order, 5U);
    EXPECT_EQ(container->peak_threshold, 0.4);
    EXPECT_EQ(container->corr_step, 1U);
    EXPECT_EQ(container->search_step, 9020U); // a frame less the synchronisation length and a margin of 20
    EXPECT_EQ(data_container_capacity(container), 2U * FRAME_LEN);
}

} // namespace
