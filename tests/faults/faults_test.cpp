// Every call with its first allocation failing, its second, and so on until none fails any more. Calls of malloc and
// its kin are linked to the functions here, and go on from there to the C library or to a sanitizer.
#include <memory>

#include "channels.h"
#include "faults/documented.h"
#include "support/modem.h"

namespace {

struct {
    bool is_short, all_later;        // whether all behind the one that fails do too
    uint32_t asked, failing, failed; // counted from 1 on
    int64_t live;
} blocks;

void* serve(void* block) { return blocks.live += block != nullptr ? 1 : 0, block; }

bool refuses()
{
    const bool reached = ++blocks.asked == blocks.failing || (blocks.all_later && blocks.asked > blocks.failing);
    blocks.failed += blocks.is_short && reached ? 1 : 0;
    return blocks.is_short && reached;
}

template <typename Call> auto short_of_memory(Call call)
{
    blocks.asked = 0;
    blocks.is_short = true;
    auto result = call();
    blocks.is_short = false;
    return result;
}

} // namespace

extern "C" {
void* __real_malloc(size_t);
void* __real_calloc(size_t, size_t);
void* __real_realloc(void*, size_t);
void __real_free(void*);
void* __wrap_malloc(size_t size) { return refuses() ? nullptr : serve(__real_malloc(size)); }
void* __wrap_calloc(size_t count, size_t size) { return refuses() ? nullptr : serve(__real_calloc(count, size)); }
void* __wrap_realloc(void* block, size_t size) { return refuses() ? nullptr : __real_realloc(block, size); }
void __wrap_free(void* block) { blocks.live -= block != nullptr ? 1 : 0, __real_free(block); }
}

namespace {

using context = soundcomm_context_t;

const message_list A = {message("a")}, B = {message("b")}, BOTH = {message("a"), message("b")};

// Two frames. When the second one's sender walks, only the second look hears it.
const pcm& sound(bool walking)
{
    static const auto make = [](bool walks) {
        const context_ptr ctx = make_context();
        double_list second = encode(ctx.get(), B[0]);
        second = walks ? kosc_link::drift(second, 2500, 2500, 0, 0) : second;
        second.resize(FRAME_LEN);
        return join({silence(100), render(encode(ctx.get(), A[0])), silence(50), render(second), silence(12000)});
    };
    static const pcm both[] = {make(false), make(true)};
    return both[walking ? 1 : 0];
}

bool hears(host* h, bool walking) { return h->hear({4096}, sound(walking)).messages == BOTH; }

// Which of its allocations a call cannot do without.
enum need { ALL, SOME, NONE };

struct row {
    const char* call;
    int (*act)(context*); // makes the call short of memory; 0 when it did what it is for, -1 when it failed
    need needs = ALL;
    void (*change)(soundcomm_cfg_t&) = [](soundcomm_cfg_t&) {};
};

int get_audio_para(context*)
{
    audio_para_t play{}, record{};
    return short_of_memory([&] { return ko_soundcommu_get_audio_para(&play, &record); });
}

int register_log(context*)
{
    const auto keep = [](const char* line) { log_capture::lines().emplace_back(line); };
    short_of_memory([=] { return ko_soundcommu_register_log(keep), 0; });
    const text_list lines = logged();
    log_capture::clear();
    return lines == text_list{"INFO ko_soundcommu version: " KOSC_VERSION} ? 0 : -1;
}

int init(context*)
{
    const auto h = short_of_memory([] { return std::make_unique<host>(); });
    return h->get() != nullptr && hears(h.get(), false) ? 0 : -1;
}

int init_with(context*)
{
    ko_soundcommu_options_t options{};
    ko_soundcommu_default_options(&options, sizeof options);
    options.second_look = 1;
    options.crowd = KOSC_CROWD_CANCEL;
    options.first_subcarrier = 7;
    options.combining = 2;
    const handle_ptr handle = short_of_memory([&] { return handle_ptr{ko_soundcommu_init_with(&options)}; });
    return handle ? 0 : -1;
}

int release(context*)
{
    auto h = std::make_unique<host>();
    return short_of_memory([&] { return h.reset(), 0; });
}

int encode_message(context*)
{
    host h;
    const pcm expected = h.frame("a");
    pcm frame(FRAME_LEN);
    const auto call = [&] { return ko_soundcommu_encode(h.get(), A[0].data(), MSG_LEN, frame.data(), 2 * FRAME_LEN); };
    const int result = short_of_memory(call);
    EXPECT_TRUE(call() == 0 && frame == expected);
    return result;
}

// A frame that cannot be decoded is lost alone, or comes later where combining is on; a block that cannot be received
// or delivered is lost whole.
template <bool SecondLook> int decode_block(context*)
{
    host h;
    EXPECT_EQ(ko_soundcommu_config_second_look(h.get(), SecondLook), 0);
    EXPECT_EQ(ko_soundcommu_config_combining(h.get(), SecondLook ? 2 : 0), 0);
    const auto look = [](const frame_report_t* frame, void*) {
        EXPECT_EQ(frame->msg == nullptr, frame->verdict == KOSC_DECODE_FAILED) << "another frame's message";
    };
    soundcomm_set_frame_callback(h.get()->ctx[0], look, nullptr);
    const pcm& block = sound(SecondLook);
    const int result = short_of_memory([&] { return h.decode(block); });
    const message_list heard = host::deliveries().empty() ? message_list{} : host::deliveries()[0].messages;
    const message_list later = {B[0], A[0]};
    EXPECT_TRUE(result == 0 ? heard == BOTH || heard == A || heard == B || heard == later || blocks.failed > 1
                            : heard.empty());
    EXPECT_EQ(ko_soundcommu_config_combining(h.get(), 0), 0); // which may still deliver what was lost
    EXPECT_TRUE(hears(&h, SecondLook));
    return heard == BOTH ? result : -1;
}

int config_second_look(context*)
{
    host h;
    const int result = short_of_memory([&] { return ko_soundcommu_config_second_look(h.get(), 1); });
    for (const soundcomm_context_t* const ctx : h.get()->ctx) {
        EXPECT_EQ(ctx->rx_paras->second_look != nullptr, result == 0) << "both channels or none";
    }
    EXPECT_TRUE(hears(&h, false));
    EXPECT_EQ(ko_soundcommu_config_second_look(h.get(), 1), 0);
    EXPECT_TRUE(hears(&h, true));
    return result;
}

// Listens with both channels together before and after; every block that combining needs is made when it is switched
// on.
int config_combining(context*)
{
    host h;
    const int64_t before = blocks.live;
    const int result = short_of_memory([&] { return ko_soundcommu_config_combining(h.get(), 2); });
    EXPECT_TRUE(result == 0 || blocks.live == before);
    EXPECT_TRUE(hears(&h, false));
    EXPECT_EQ(ko_soundcommu_config_combining(h.get(), 1), 0);
    EXPECT_TRUE(hears(&h, false));
    return result;
}

// Two frames over each other: the first is heard again when the second has been cancelled.
pcm over_each_other(context* ctx)
{
    double_list both = encode(ctx, A[0]);
    both.resize(both.size() + 2000 + 2 * size_t{FRAME_LEN});
    const double_list louder = encode(ctx, B[0]);
    for (size_t i = 0; i < louder.size(); ++i) {
        both[2000 + i] += 5 * louder[i];
    }
    return render(both);
}

int config_crowd(context* ctx)
{
    host h;
    EXPECT_EQ(ko_soundcommu_config_second_look(h.get(), 1), 0);
    const int result = short_of_memory([&] { return ko_soundcommu_config_crowd(h.get(), KOSC_CROWD_CANCEL); });
    for (const soundcomm_context_t* const channel : h.get()->ctx) {
        EXPECT_EQ(channel->rx_paras->crowd != nullptr, result == 0) << "both channels or none";
    }
    EXPECT_TRUE(hears(&h, true)) << "also without";
    EXPECT_EQ(ko_soundcommu_config_crowd(h.get(), KOSC_CROWD_CANCEL), 0);
    EXPECT_EQ(h.hear({4096}, over_each_other(ctx)).messages, (message_list{B[0], A[0]}));
    return result;
}

// A try that fails for want of memory loses what that frame covers, too, and nothing else.
int decode_crowd(context* ctx)
{
    host h;
    EXPECT_EQ(ko_soundcommu_config_second_look(h.get(), 1), 0);
    EXPECT_EQ(ko_soundcommu_config_crowd(h.get(), KOSC_CROWD_CANCEL), 0);
    const pcm block = over_each_other(ctx);
    const int result = short_of_memory([&] { return h.decode(block); });
    const message_list heard = host::deliveries().empty() ? message_list{} : host::deliveries()[0].messages;
    const message_list both = {B[0], A[0]};
    EXPECT_TRUE(heard.empty() || (result == 0 && (heard == both || heard == B))) << "only B can be heard alone";
    EXPECT_TRUE(hears(&h, true));
    return heard == both ? result : -1;
}

int look_again(context* ctx)
{
    double_list frame = kosc_link::drift(encode(ctx, B[0]), 2500, 2500, 0, 0);
    frame.resize(FRAME_LEN);
    EXPECT_TRUE(soundcomm_config_second_look(ctx, KOSC_SECOND_LOOK_ON));
    const auto look = [&] { return soundcomm_decode_second_look(ctx, frame.data(), FRAME_LEN, nullptr, 0, nullptr); };
    EXPECT_EQ(short_of_memory(look), 1U);
    for (uint32_t i = 0; i < FRAME_LEN; ++i) {
        frame[i] *= is_pilot_index(2, i / 1280) ? 1 : 0; // every attempt is made, and in vain
    }
    EXPECT_EQ(short_of_memory(look), 0U);
    return soundcomm_config_second_look(ctx, KOSC_SECOND_LOOK_OFF) ? 0 : -1;
}

int encode_frame(context* ctx)
{
    double_list frame(ctx->tx_paras->frame.frame_length);
    const auto len = static_cast<uint32_t>(frame.size());
    return short_of_memory([&] { return soundcomm_encode(ctx->tx_paras, A[0].data(), MSG_LEN, frame.data(), len); });
}

int decode_frame(context* ctx, bool is_short)
{
    const double_list frame = encode(ctx, A[0]);
    const auto len = static_cast<uint32_t>(frame.size());
    byte_list found(MSG_LEN);
    const auto call = [&] { return soundcomm_decode(ctx, frame.data(), len, found.data(), nullptr, MSG_LEN); };
    const uint32_t verdict = is_short ? short_of_memory(call) : call();
    EXPECT_EQ(verdict, found == A[0] ? 1U : KOSC_DECODE_FAILED);
    return verdict == 1 ? 0 : -1;
}

int init_receive(context* ctx)
{
    const auto call = [=] { return soundcomm_init_receive(ctx, {0.4, 20, 1}, {2, 2, 48000}) ? 0 : -1; };
    const int result = short_of_memory(call);
    return call() == 0 ? result : 1;
}

int init_context(context* c)
{
    const auto call = [=] { return context_ptr{soundcomm_init(&c->tx_paras->cfg, &c->rx_paras->cfg)}; };
    const context_ptr built = short_of_memory(call);
    return built ? decode_frame(built.get(), false) : -1;
}

// Another code, another spreading, and symbols that are too wide and too long for the fast ways.
void make_unusual(soundcomm_cfg_t& cfg)
{
    use_block_code(cfg);
    cfg.ofdm_cfg = {2048, 256, 600, 256, KOSC_PAPR_DFT_SPREAD};
}

void speak_low(soundcomm_cfg_t& cfg) { cfg.ofdm_cfg.sc_start_idx = 7; }

// A call that gives something for `guard` to free, or null.
row part(const char* call, need needs, int (*act)(context*)) { return {call, act, needs}; }
template <typename Make> int give(Make make) { return short_of_memory(make) != nullptr ? 0 : -1; }
#define GIVES(needs, guard, call, ...)                                                                                 \
    part(#call, needs, []([[maybe_unused]] context* c) { return give([=] { return guard{call(__VA_ARGS__)}; }); })

struct coded_ptr : owned<void, __wrap_free> {
    explicit coded_ptr(conv_data_t result) : unique_ptr{result.data} {}
};

const byte_list ZEROS(768), STRANGE(768, 2);
const double_list ONES(2048, 1.0);
const kom_vector_uint8 BYTES = view_of(ZEROS);
const kom_vector REALS = kom_vector_const_view_array(ONES.data(), 1024, 0, 1, 1024);
const kom_vector_complex VALUES = kom_vector_complex_const_view_array(ONES.data(), 1024, 0, 1, 1024);
const filter_ptr BAND{create_butterworth_bandpass1(5, 1, 0.7, 0.9)};
const smoother_ptr SMOOTHER{channel_smoother_init(64, 1024, 256)};

const row ROWS[] = {
    {"ko_soundcommu_get_audio_para", get_audio_para, NONE},
    {"ko_soundcommu_register_log", register_log},
    {"ko_soundcommu_init", init, SOME},
    {"ko_soundcommu_init_with", init_with, SOME},
    {"ko_soundcommu_release", release, NONE},
    {"ko_soundcommu_encode", encode_message},
    {"ko_soundcommu_decode", decode_block<false>},
    {"ko_soundcommu_decode", decode_block<true>},
    {"ko_soundcommu_config_second_look", config_second_look},
    {"ko_soundcommu_config_combining", config_combining},
    {"ko_soundcommu_config_crowd", config_crowd},
    {"ko_soundcommu_decode", decode_crowd, SOME},
    {"soundcomm_init", init_context, SOME},
    {"soundcomm_init", init_context, SOME, make_unusual},
    {"soundcomm_init_receive", init_receive, ALL, speak_low},
    {"soundcomm_encode", encode_frame},
    {"soundcomm_encode", encode_frame, ALL, make_unusual},
    {"soundcomm_decode", [](context* ctx) { return decode_frame(ctx, true); }},
    {"soundcomm_decode", [](context* ctx) { return decode_frame(ctx, true); }, ALL, make_unusual},
    {"soundcomm_decode_second_look", look_again, NONE, speak_low},
    GIVES(ALL, container_ptr, data_container_init, 9000, 4000, 2000, {0.4, 20, 1}, ONES.data(), 1024, BAND.get()),
    GIVES(ALL, filter_ptr, create_butterworth_bandpass2, 5, 1, 17e3, 20e3, 48e3),
    GIVES(ALL, pattern_ptr, calc_phase_pattern, ONES.data(), 64),
    GIVES(ALL, punch_ptr, get_punch_template, 786, 768),
    GIVES(ALL, queue_ptr, vector_init, 9),
    GIVES(ALL, bytes_ptr, kom_vector_uint8_alloc, 9),
    GIVES(ALL, bytes_ptr, kom_vector_uint8_alloc_from_vector, &BYTES, 0, 9, 1),
    GIVES(ALL, doubles_ptr, kom_vector_alloc_from_vector, &REALS, 0, 9, 1),
    GIVES(ALL, complex_ptr, kom_vector_complex_alloc_from_array, ONES.data(), 9, 0, 1, 9),
    GIVES(ALL, doubles_ptr, kom_vector_complex_real, &VALUES),
    GIVES(ALL, complex_ptr, kom_vector_complex_real_to_complex, &REALS),
    GIVES(ALL, smoother_ptr, channel_smoother_init, 64, 1024, 256),
    GIVES(ALL, drift_search_ptr, drift_search_init, c->rx_paras, SMOOTHER.get()),
    GIVES(ALL, soft_viterbi_ptr, soft_viterbi_init, c->rx_paras->conv_code, 262),
    GIVES(SOME, code_ptr, conv_code_init, 7, c->tx_paras->conv_code->polynomials, 3),
    GIVES(ALL, coded_ptr, conv_code_encode, c->tx_paras->conv_code, ZEROS.data(), 256),
    GIVES(ALL, coded_ptr, conv_code_decode_hard, c->rx_paras->conv_code, STRANGE.data(), 768, true), // slot by slot
};

// Makes the call once; false when the plan was to fail an allocation that it does not make.
bool fails(const row& r, context* ctx, const text_set& documented)
{
    const log_capture log{KOSC_LEVEL_WARN};
    const int64_t live = blocks.live;
    blocks.failed = 0;
    const int result = r.act(ctx);
    EXPECT_EQ(result, blocks.failed == 0 || (result == 0 && r.needs == SOME) ? 0 : -1);
    EXPECT_TRUE(blocks.failed == 0 || r.needs != NONE);
    EXPECT_EQ(blocks.live, live);
    EXPECT_EQ(decode_frame(ctx, false), 0);
    const text_list lines = logged();
    EXPECT_TRUE(blocks.failed == 0 ? lines.empty() : result == 0 || documented.empty() || !lines.empty());
    for (const auto& line : lines) {
        const auto has_it = [&](const auto& text) { return fits(line.c_str(), text.c_str()); };
        EXPECT_TRUE(std::any_of(documented.begin(), documented.end(), has_it)) << line;
    }
    return blocks.failed != 0;
}

class ShortOfMemory : public testing::TestWithParam<size_t> {};

TEST_P(ShortOfMemory, FailsAsDocumentedLosesNothingAndRecovers)
{
    const row& r = ROWS[GetParam()];
    const log_capture quiet{0};
    const context_ptr ctx = make_context(r.change);
    ASSERT_TRUE(soundcomm_init_receive(ctx.get(), {0.4, 20, 1}, {2, 2, 48000}));
    text_set calls, documented;
    find_texts(read_headers(KOSC_HEADERS), r.call, &calls, &documented);
    int failures = 0;
    for (const bool all_later : {false, true}) {
        blocks.all_later = all_later;
        for (blocks.failing = 1; fails(r, ctx.get(), documented); ++blocks.failing, ++failures) {
            ASSERT_FALSE(HasFailure()) << "with allocation " << blocks.failing << (all_later ? " and all later" : "");
        }
    }
    EXPECT_EQ(failures == 0, r.needs == NONE);
    RecordProperty("failures", failures);
}

INSTANTIATE_TEST_SUITE_P(Calls, ShortOfMemory, testing::Range<size_t>(0, std::size(ROWS)),
                         [](const auto& at) { return ROWS[at.param].call + ("_" + std::to_string(at.index)); });

} // namespace
