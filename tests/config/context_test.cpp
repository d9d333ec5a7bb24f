#include "kosc/context.h"

#include <cmath>

#include <gtest/gtest.h>

#include "support/content.h"

namespace {

using cfg_t = soundcomm_cfg_t;
using edit = void (*)(cfg_t&);

void unchanged(cfg_t&) {}

cfg_t changed(edit change)
{
    cfg_t cfg = *soundcomm_default_cfg();
    change(cfg);
    return cfg;
}

context_ptr make_context(edit change)
{
    const cfg_t cfg = changed(change);
    return context_ptr{soundcomm_init(&cfg, &cfg)};
}

void make_linear(cfg_t& cfg, uint32_t n, uint32_t k)
{
    cfg.channel_code_cfg.type = KOSC_CODE_LINEAR;
    cfg.channel_code_cfg.paras.linear = {n, k};
}

// Block code, and one data symbol of `subcarriers` values.
void make_wide(cfg_t& cfg, uint32_t msg_byte_len, uint32_t subcarriers)
{
    make_linear(cfg, 8, 2);
    cfg.msg_byte_len = msg_byte_len;
    cfg.ofdm_cfg.symbol_len = 2048;
    cfg.ofdm_cfg.sc_num = subcarriers;
}

const uint32_t ONES[] = {1, 1, 1}, OUTSIDE[] = {95, 128, 81};

TEST(Context, ReportsTheFirstOfItsFailingChecks)
{
    const std::pair<edit, text_list> cases[] = {
        {[](cfg_t& c) { c.ofdm_cfg.sc_num = 0, c.msg_byte_len = 27; }, {"some length in cfg is ZERO"}},
        {[](cfg_t& c) { c.msg_byte_len = 27, c.fade_cfg.len = 256; }, {"msg byte len 27 is not divisible by groups 2"}},
        {[](cfg_t& c) {
             c.fade_cfg = {0, 256}, c.ofdm_cfg.sc_num = 100;
         },
         {"fade in and out length 256 is too long"}},
        {[](cfg_t& c) { c.ofdm_cfg.sc_num = 100, c.ofdm_cfg.papr = 4; },
         {"RE num 384 can't be divided by sc num 100", "Init frame struct failed"}},
        {[](cfg_t& c) { c.ofdm_cfg.papr = 4, c.channel_code_cfg.paras.conv.polynomials = OUTSIDE; }, {}},
        {[](cfg_t& c) { make_wide(c, 68, 576); }, {"Fail to Init PAPR reduction context."}}, // there are 512 angles
        {[](cfg_t& c) { c.channel_code_cfg.paras.conv.polynomials = OUTSIDE, c.ofdm_cfg.sc_start_idx = 448; },
         {"Invalid polynomial 128", "Fail to init convolutional code."}},
        {[](cfg_t& c) { c.channel_code_cfg.paras.conv.polynomials = nullptr; },
         {"Invalid para 7, 0, 3", "Fail to init convolutional code."}},
        {[](cfg_t& c) {
             c.channel_code_cfg.paras.conv = {1, ONES, 3};
         },
         {"Fail to init punch code."}},
        {[](cfg_t& c) { make_linear(c, 6, 2); }, {"Unsupported linear code paras n,k=6,2"}},
        {[](cfg_t& c) { c.ofdm_cfg.sc_start_idx = 448; },
         {"pilot map subcarries faild.", "init sync pilot failed.", "Init pilot failed"}},
        {[](cfg_t& c) { c.ofdm_cfg.symbol_len = 1000; },
         {"pilot mod ofdm symbol faild.", "init sync pilot failed.", "Init pilot failed"}},
        {[](cfg_t& c) { c.ofdm_cfg.cp_len = 1025; }, // longer than the symbol that it repeats
         {"init pilot with cp faild.", "init sync pilot failed.", "Init pilot failed"}},
    };
    const cfg_t& good = *soundcomm_default_cfg();
    for (const auto& [change, messages] : cases) {
        const cfg_t bad = changed(change);
        for (const bool tx : {true, false}) {
            const log_capture log; // at DEBUG, so that the dump meets the bad record too
            EXPECT_EQ(soundcomm_init(tx ? &bad : &good, tx ? &good : &bad), nullptr);
            text_list expected;
            for (const auto& message : messages) {
                expected.push_back("ERROR " + message);
            }
            expected.push_back(tx ? "ERROR Fail to init tx paras." : "ERROR Fail to init rx paras.");
            EXPECT_EQ(logged("ERROR"), expected);
        }
    }
}

TEST(Context, DumpsItsRecordsAtDebug)
{
    const text_list one_set = {"DEBUG Sound Comm Config msg byte len 28",
                               "DEBUG CRC config: 16 bits, group=2, put crc AT_LAST",
                               "DEBUG Channel code config: CONV, constraint(7) polynomial_num(3)",
                               "DEBUG polynomials 0: 95",
                               "DEBUG polynomials 1: 107",
                               "DEBUG polynomials 2: 81",
                               "DEBUG Interleaver config: stride=16",
                               "DEBUG Mod config: QPSK",
                               "DEBUG OFDM config: symbol len=1024, cp len=256, sc start idx=384, sc num=64, papr:3",
                               "DEBUG Pilot config: pilot type ALL_SUBCARRIES, data pilot rate 2",
                               "DEBUG Init punch code 786 768",
                               "DEBUG init sync pilot succeed.",
                               "DEBUG init estimating pilot succeed.",
                               "DEBUG One Frame has 6 data symbols, 3 pilot symbols, 9 symbols, frame length=11520, "
                               "sync pilot index 1, len_before_sync=2480, bytes=32, bits=256, re_num=384"};
    text_list expected = one_set;
    expected.insert(expected.end(), one_set.begin(), one_set.end());
    const log_capture log;
    ASSERT_NE(make_context(unchanged), nullptr);
    EXPECT_EQ(logged(), expected);
    log_capture::clear();
    make_context([](cfg_t& c) {
        make_linear(c, 8, 2);
        c.crc_cfg.put_crc = 0;
        c.mod_cfg.type = c.pilot_cfg.pilot_type = 1;
    });
    for (const char* text :
         {"CRC config: 16 bits, group=2, put crc AFTER_EVERY_PART", "Channel code config: LINEAR, (n, k)=(8, 2)",
          "Mod config: unknown", "Pilot config: pilot type unknown, data pilot rate 2"}) {
        EXPECT_EQ(log_capture::count("DEBUG", text), 2u) << text;
    }
}

TEST(Context, TakesItsPhasePatternFromTheBuiltInAngles)
{
    const log_capture quiet{0};
    const auto degrees = [](edit change) { // 1 to 360
        const context_ptr ctx = make_context(change);
        std::vector<long> all;
        for (uint32_t k = 0; k < ctx->tx_paras->phase_pattern->shift_count; ++k) {
            const double* const factor = ctx->tx_paras->phase_pattern->shift_factors + 2 * k;
            all.push_back((std::lround(std::atan2(factor[1], factor[0]) * 180 / M_PI) + 359) % 360 + 1);
        }
        return all;
    };
    EXPECT_EQ(degrees([](cfg_t& c) { c.ofdm_cfg.papr = 1; }), (std::vector<long>{360, 45, 90, 135}));
    const std::vector<long> all = degrees([](cfg_t& c) { make_wide(c, 28, 512); });
    long sum = 0, weighted_sum = 0;
    for (size_t k = 0; k < all.size(); ++k) {
        sum += all[k];
        weighted_sum += all[k] * static_cast<long>(k);
    }
    EXPECT_EQ((std::vector{all[0], all[511], sum, weighted_sum}), (std::vector<long>{324, 53, 91832, 23455385}));
    EXPECT_EQ(degrees(unchanged), std::vector<long>(all.begin(), all.begin() + 64));
}

// Other values than 0 and 1 count the fade, but no sample is faded.
TEST(Context, PlacesThePilotsReferenceAFadeEarly)
{
    const log_capture quiet{0};
    const context_ptr off = make_context([](cfg_t& c) { c.fade_cfg.enable = 0; });
    const context_ptr counted = make_context([](cfg_t& c) { c.fade_cfg.enable = 2; });
    for (const auto pilot : {&soundcomm_paras_t::sync_pilot, &soundcomm_paras_t::estimating_pilot}) {
        const pilot_t &a = off->rx_paras->*pilot, &b = counted->rx_paras->*pilot;
        EXPECT_EQ(a.reference - a.samples->data, 256);
        EXPECT_EQ(b.reference - b.samples->data, 256 - 80);
        EXPECT_EQ(list(a.samples->data, 1280), list(b.samples->data, 1280));
        EXPECT_EQ(list(a.samples->data, 256), list(a.samples->data + 1024, 256)); // the cyclic prefix
    }
}

} // namespace
