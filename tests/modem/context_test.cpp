#include "kosc/context.h"

#include <cmath>

#include "support/modem.h"

namespace {

using cfg_t = soundcomm_cfg_t;

// Block code, and one data symbol of `subcarriers` values.
void make_wide(cfg_t& cfg, uint32_t msg_byte_len, uint32_t subcarriers)
{
    use_block_code(cfg);
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
        {[](cfg_t& c) { c.fade_cfg.len = 256, c.ofdm_cfg.sc_num = 100; }, {"fade in and out length 256 is too long"}},
        {[](cfg_t& c) { c.ofdm_cfg.sc_num = 100, c.ofdm_cfg.papr = 4; },
         {"RE num 384 can't be divided by sc num 100", "Init frame struct failed"}},
        {[](cfg_t& c) { c.ofdm_cfg.papr = 4; }, {}},
        {[](cfg_t& c) { c.ofdm_cfg.symbol_len = 1 << 19; }, {"Init frame struct failed"}},   // above 2^22 samples
        {[](cfg_t& c) { make_wide(c, 68, 576); }, {"Fail to Init PAPR reduction context."}}, // there are 512 angles
        {[](cfg_t& c) { c.channel_code_cfg.paras.conv.polynomials = OUTSIDE, c.ofdm_cfg.sc_start_idx = 448; },
         {"Invalid polynomial 128", "Fail to init convolutional code."}},
        {[](cfg_t& c) {
             c.channel_code_cfg.paras.conv = {1, ONES, 3};
         },
         {"Fail to init punch code."}},
        {[](cfg_t& c) { use_block_code(c, 6, 2); }, {"Unsupported linear code paras n,k=6,2"}},
        {[](cfg_t& c) { c.ofdm_cfg.sc_start_idx = 448; },
         {"pilot map subcarries faild.", "init sync pilot failed.", "Init pilot failed"}},
        {[](cfg_t& c) { c.ofdm_cfg.symbol_len = 1000; },
         {"pilot mod ofdm symbol faild.", "init sync pilot failed.", "Init pilot failed"}},
        {[](cfg_t& c) { c.ofdm_cfg.cp_len = 1025; }, // longer than the symbol that it repeats
         {"init pilot with cp faild.", "init sync pilot failed.", "Init pilot failed"}},
    };
    const cfg_t& good = *soundcomm_default_cfg();
    for (const auto& [change, messages] : cases) {
        cfg_t bad = good;
        change(bad);
        for (const bool tx : {true, false}) {
            const log_capture log; // at DEBUG, so that the dump meets the bad record too
            EXPECT_EQ(soundcomm_init(tx ? &bad : &good, tx ? &good : &bad), nullptr);
            text_list expected = messages;
            expected.push_back(tx ? "Fail to init tx paras." : "Fail to init rx paras.");
            EXPECT_EQ(logged("ERROR"), errors(expected));
        }
    }
}

TEST(Context, ChecksThatNothingDividedByOrAllocatedIsZero)
{
    cfg_t conv = *soundcomm_default_cfg(), linear = conv;
    use_block_code(linear);
    conv.crc_cfg.bits = conv.crc_cfg.put_crc = conv.ofdm_cfg.sc_start_idx = conv.fade_cfg.len = 0; // may be
    EXPECT_TRUE(cfg_zero_length_check(conv) && cfg_zero_length_check(linear));
    for (uint32_t* const field :
         {&conv.msg_byte_len, &conv.crc_cfg.group, &conv.interleaver_cfg.stride, &conv.ofdm_cfg.symbol_len,
          &conv.ofdm_cfg.cp_len, &conv.ofdm_cfg.sc_num, &conv.pilot_cfg.data_pilot_rate,
          &conv.channel_code_cfg.paras.conv.constraint, &conv.channel_code_cfg.paras.conv.polynomial_num,
          &linear.channel_code_cfg.paras.linear.n, &linear.channel_code_cfg.paras.linear.k}) {
        const uint32_t kept = *field;
        *field = 0;
        EXPECT_FALSE(cfg_zero_length_check(conv) && cfg_zero_length_check(linear)) << kept;
        *field = kept;
    }
}

TEST(Context, DumpsItsRecordsAtDebug)
{
    const log_capture log;
    make_context();
    expect_logged({"DEBUG CRC config: 16 bits, group=2, put crc AT_LAST"});
    make_context([](cfg_t& c) {
        use_block_code(c);
        c.crc_cfg.put_crc = 0;
        c.mod_cfg.type = c.pilot_cfg.pilot_type = 1;
    });
    expect_logged({"DEBUG Sound Comm Config msg byte len 28",
                   "DEBUG CRC config: 16 bits, group=2, put crc AFTER_EVERY_PART",
                   "DEBUG Channel code config: CONV, constraint(7) polynomial_num(3)", "DEBUG polynomials 2: 81",
                   "DEBUG Channel code config: LINEAR, (n, k)=(8, 2)", "DEBUG Interleaver config: stride=16",
                   "DEBUG Mod config: QPSK", "DEBUG Mod config: unknown",
                   "DEBUG OFDM config: symbol len=1024, cp len=256, sc start idx=384, sc num=64, papr:3",
                   "DEBUG Pilot config: pilot type ALL_SUBCARRIES, data pilot rate 2",
                   "DEBUG Pilot config: pilot type unknown, data pilot rate 2", "DEBUG Init punch code 786 768",
                   "DEBUG init sync pilot succeed.", "DEBUG init estimating pilot succeed.",
                   "DEBUG One Frame has 6 data symbols, 3 pilot symbols, 9 symbols, frame length=11520, sync pilot "
                   "index 1, len_before_sync=2480, bytes=32, bits=256, re_num=384"});
}

TEST(Context, TakesItsPhasePatternFromTheBuiltInAngles)
{
    const log_capture quiet{0};
    const context_ptr wide = make_context([](cfg_t& c) { make_wide(c, 28, 512); });
    long sum = 0, weighted_sum = 0;
    for (long k = 0; k < 512; ++k) {
        const double* const factor = wide->tx_paras->phase_pattern->shift_factors + 2 * k;
        const long degrees = (std::lround(std::atan2(factor[1], factor[0]) * 180 / M_PI) + 359) % 360 + 1;
        sum += degrees;
        weighted_sum += degrees * k;
    }
    EXPECT_EQ(sum, 91832);
    EXPECT_EQ(weighted_sum, 23455385);
}

} // namespace
