#include "kosc/config.h"

#include <gtest/gtest.h>

namespace {

TEST(Config, PassesItsCheckWhileNothingDividedByOrAllocatedIsZero)
{
    soundcomm_cfg_t conv = *soundcomm_default_cfg(), linear = conv;
    linear.channel_code_cfg.type = KOSC_CODE_LINEAR;
    linear.channel_code_cfg.paras.linear = {8, 2};
    for (soundcomm_cfg_t* cfg : {&conv, &linear}) {
        cfg->crc_cfg.bits = cfg->crc_cfg.put_crc = cfg->ofdm_cfg.sc_start_idx = cfg->fade_cfg.len = 0; // may be
        EXPECT_TRUE(cfg_zero_length_check(*cfg));
        conv_code_cfg& conv_code = cfg->channel_code_cfg.paras.conv;
        linear_code_cfg& linear_code = cfg->channel_code_cfg.paras.linear;
        uint32_t* const fields[] = {&cfg->msg_byte_len,
                                    &cfg->crc_cfg.group,
                                    &cfg->interleaver_cfg.stride,
                                    &cfg->ofdm_cfg.symbol_len,
                                    &cfg->ofdm_cfg.cp_len,
                                    &cfg->ofdm_cfg.sc_num,
                                    &cfg->pilot_cfg.data_pilot_rate,
                                    cfg == &linear ? &linear_code.n : &conv_code.constraint,
                                    cfg == &linear ? &linear_code.k : &conv_code.polynomial_num};
        for (uint32_t* const* field = fields; field != std::end(fields); ++field) {
            const uint32_t kept = **field;
            **field = 0;
            EXPECT_FALSE(cfg_zero_length_check(*cfg)) << "field " << field - fields;
            **field = kept;
        }
    }
}

} // namespace
