#include "kosc/config.h"

namespace {

constexpr uint32_t POLYNOMIALS[] = {95, 107, 81}; // octal 0137, 0153, 0121

constexpr soundcomm_cfg_t DEFAULT_CFG = {
    28,                                           // bytes a message
    {16, 2, KOSC_CRC_AT_LAST},                    // CRC width, groups, placement
    {KOSC_CODE_CONV, {{7, POLYNOMIALS, 3}}},      // constraint length, generators
    {16},                                         // interleaver stride
    {0},                                          // QPSK
    {1024, 256, 384, 64, KOSC_PAPR_LONG_PATTERN}, // FFT size, prefix, first subcarrier, subcarriers
    {0, 2},                                       // pilots on every subcarrier, data symbols a pilot
    {1, 80},                                      // fade on, samples
};

bool code_has_zero_length(const channel_code_cfg& code)
{
    if (code.type == KOSC_CODE_LINEAR) {
        return code.paras.linear.n == 0 || code.paras.linear.k == 0;
    }
    return code.paras.conv.polynomial_num == 0 || code.paras.conv.constraint == 0;
}

} // namespace

const soundcomm_cfg_t* soundcomm_default_cfg(void) { return &DEFAULT_CFG; }

bool cfg_zero_length_check(soundcomm_cfg_t cfg)
{
    return cfg.msg_byte_len != 0 && cfg.crc_cfg.group != 0 && cfg.interleaver_cfg.stride != 0 &&
           cfg.ofdm_cfg.symbol_len != 0 && cfg.ofdm_cfg.cp_len != 0 && cfg.ofdm_cfg.sc_num != 0 &&
           cfg.pilot_cfg.data_pilot_rate != 0 && !code_has_zero_length(cfg.channel_code_cfg);
}
