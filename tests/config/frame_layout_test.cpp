#include "kosc/frame_layout.h"

#include <gtest/gtest.h>

#include "support/content.h"

namespace {

using cfg_t = soundcomm_cfg_t;
using counts = std::vector<uint32_t>;

TEST(FrameLayout, FollowsFromTheConfiguration)
{
    const std::pair<void (*)(cfg_t&), counts> cases[] = {
        // the nine fields in order
        {[](cfg_t&) {}, {32, 256, 384, 6, 3, 9, 11520, 1, 2480}},
        {[](cfg_t& c) { c.fade_cfg.enable = 0; }, {32, 256, 384, 6, 3, 9, 11520, 1, 2560}},
        {[](cfg_t& c) { c.pilot_cfg.data_pilot_rate = 5; }, {32, 256, 384, 6, 2, 8, 10240, 2, 3760}},
        {[](cfg_t& c) {
             c.crc_cfg = {12, 1, 0}, c.ofdm_cfg.sc_num = 6;
         },
         {29, 236, 354, 59, 30, 89, 113920, 1, 2480}},
        {[](cfg_t& c) {
             c.channel_code_cfg.type = 0, c.channel_code_cfg.paras.linear = {8, 2};
         },
         {32, 256, 512, 8, 4, 12, 15360, 1, 2480}},
    };
    for (const auto& [change, expected] : cases) {
        cfg_t cfg = *soundcomm_default_cfg();
        change(cfg);
        frame_struct_t f{};
        EXPECT_TRUE(init_frame_struct(&cfg, &f));
        const counts fields = {f.bytes,   f.bits,         f.re_num,           f.data_symbols,   f.pilot_symbols,
                               f.symbols, f.frame_length, f.sync_pilot_index, f.len_before_sync};
        EXPECT_EQ(fields, expected);
        EXPECT_EQ(soundcomm_get_frame_length_from_cfg(&cfg), f.frame_length);
    }
}

TEST(FrameLayout, RefusesWhatGivesNoWholeFrame)
{
    const log_capture log;
    cfg_t empty = *soundcomm_default_cfg(), huge = empty, uneven = empty;
    empty.ofdm_cfg.cp_len = 0;
    huge.crc_cfg.bits = huge.crc_cfg.group = 0x10000; // 2^32 bits, which must not wrap to a small frame
    uneven.ofdm_cfg.sc_num = 100;
    frame_struct_t frame{};
    for (const uint32_t length : {0x80000000U, 0x10000000U}) { // a symbol and its prefix, or all symbols, pass 2^32
        cfg_t endless = *soundcomm_default_cfg();
        endless.ofdm_cfg.symbol_len = endless.ofdm_cfg.cp_len = length;
        EXPECT_FALSE(init_frame_struct(&endless, &frame)) << length;
    }
    EXPECT_FALSE(init_frame_struct(&empty, &frame) || init_frame_struct(&huge, &frame));
    EXPECT_FALSE(init_frame_struct(&uneven, nullptr));
    EXPECT_EQ(logged(), text_list{});
    EXPECT_EQ(soundcomm_get_frame_length_from_cfg(&uneven), 0u);
    EXPECT_EQ(logged(), (text_list{"ERROR RE num 384 can't be divided by sc num 100",
                                   "WARN cfg error, can't get frame length."}));
}

} // namespace
