#include "kosc/frame_layout.h"

#include <climits>
#include <cmath>

#include "config/qpsk_constants.h"
#include "log/log_macros.h"

using namespace kosc;

namespace {

// Code bits a message bit. The tail of the convolutional code is not counted: puncturing removes just that much.
uint32_t rate_multiplier(const channel_code_cfg& code)
{
    return code.type == KOSC_CODE_LINEAR ? code.paras.linear.n / code.paras.linear.k : code.paras.conv.polynomial_num;
}

bool fits_32_bits(uint64_t value) { return value <= UINT32_MAX; }

} // namespace

bool init_frame_struct(const soundcomm_cfg_t* cfg, frame_struct_t* fs)
{
    if (cfg == nullptr || fs == nullptr || !cfg_zero_length_check(*cfg)) {
        return false;
    }
    // In 64 bits, because a frame whose counts wrapped would be laid out over buffers sized for another one.
    const uint64_t bits = uint64_t{cfg->crc_cfg.bits} * cfg->crc_cfg.group + uint64_t{cfg->msg_byte_len} * CHAR_BIT;
    if (!fits_32_bits(bits) || !fits_32_bits(bits * rate_multiplier(cfg->channel_code_cfg))) {
        return false;
    }
    const ofdm_cfg& ofdm = cfg->ofdm_cfg;
    fs->bits = static_cast<uint32_t>(bits);
    fs->bytes = fs->bits / CHAR_BIT;
    fs->re_num = fs->bits * rate_multiplier(cfg->channel_code_cfg) / QPSK_BITS;
    KOSC_RETURN_IF(fs->re_num % ofdm.sc_num != 0, false, "RE num %u can't be divided by sc num %u", fs->re_num,
                   ofdm.sc_num);

    const uint32_t rate = cfg->pilot_cfg.data_pilot_rate;
    fs->data_symbols = fs->re_num / ofdm.sc_num;
    fs->pilot_symbols = static_cast<uint32_t>(std::ceil(static_cast<double>(fs->data_symbols) / rate));
    fs->symbols = fs->data_symbols + fs->pilot_symbols;
    const uint64_t symbol_samples = uint64_t{ofdm.symbol_len} + ofdm.cp_len;
    if (!fits_32_bits(symbol_samples) || !fits_32_bits(symbol_samples * fs->symbols)) {
        return false;
    }
    fs->frame_length = static_cast<uint32_t>(symbol_samples * fs->symbols);
    fs->sync_pilot_index = rate / 2;
    fs->len_before_sync = static_cast<uint32_t>(symbol_samples) * (fs->sync_pilot_index + 1) -
                          (cfg->fade_cfg.enable != 0 ? cfg->fade_cfg.len : 0);
    return true;
}

uint32_t soundcomm_get_frame_length_from_cfg(const soundcomm_cfg_t* cfg)
{
    frame_struct_t frame{};
    if (!init_frame_struct(cfg, &frame)) {
        KOSC_LOG_WARN("cfg error, can't get frame length.");
        return 0;
    }
    return frame.frame_length;
}

bool is_pilot_index(uint32_t data_pilot_rate, uint32_t symbol_index)
{
    const uint32_t position = symbol_index + data_pilot_rate / 2 + 1;
    const uint32_t period = data_pilot_rate + 1;
    return period != 0 ? position % period == 0 : position == 0;
}
