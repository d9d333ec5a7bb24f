#include "config/config_dump.h"

#include "log/log_macros.h"

namespace {

void dump_crc(const crc_cfg& crc)
{
    KOSC_LOG_DEBUG("CRC config: %u bits, group=%u, put crc %s", crc.bits, crc.group,
                   crc.put_crc != KOSC_CRC_AFTER_EVERY_PART ? "AT_LAST" : "AFTER_EVERY_PART");
}

void dump_channel_code(const channel_code_cfg& code)
{
    if (code.type == KOSC_CODE_LINEAR) {
        KOSC_LOG_DEBUG("Channel code config: LINEAR, (n, k)=(%u, %u)", code.paras.linear.n, code.paras.linear.k);
        return;
    }
    const conv_code_cfg& conv = code.paras.conv;
    KOSC_LOG_DEBUG("Channel code config: CONV, constraint(%u) polynomial_num(%u)", conv.constraint,
                   conv.polynomial_num);
    // Dumped before the code is built, so the pointer has not been checked yet.
    for (uint32_t i = 0; conv.polynomials != nullptr && i < conv.polynomial_num; ++i) {
        KOSC_LOG_DEBUG("polynomials %u: %u", i, conv.polynomials[i]);
    }
}

void dump_ofdm(const ofdm_cfg& ofdm)
{
    KOSC_LOG_DEBUG("OFDM config: symbol len=%u, cp len=%u, sc start idx=%u, sc num=%u, papr:%d", ofdm.symbol_len,
                   ofdm.cp_len, ofdm.sc_start_idx, ofdm.sc_num, ofdm.papr);
}

void dump_pilot(const pilot_cfg& pilot)
{
    KOSC_LOG_DEBUG("Pilot config: pilot type %s, data pilot rate %u",
                   pilot.pilot_type == 0 ? "ALL_SUBCARRIES" : "unknown", pilot.data_pilot_rate);
}

} // namespace

namespace kosc {

void dump_cfg(const soundcomm_cfg_t& cfg)
{
    KOSC_LOG_DEBUG("Sound Comm Config msg byte len %u", cfg.msg_byte_len);
    dump_crc(cfg.crc_cfg);
    dump_channel_code(cfg.channel_code_cfg);
    KOSC_LOG_DEBUG("Interleaver config: stride=%u", cfg.interleaver_cfg.stride);
    KOSC_LOG_DEBUG("Mod config: %s", cfg.mod_cfg.type == 0 ? "QPSK" : "unknown");
    dump_ofdm(cfg.ofdm_cfg);
    dump_pilot(cfg.pilot_cfg);
}

void dump_frame_struct(const frame_struct_t& frame)
{
    KOSC_LOG_DEBUG("One Frame has %u data symbols, %u pilot symbols, %u symbols, frame length=%u, sync pilot index %u, "
                   "len_before_sync=%u, bytes=%u, bits=%u, re_num=%u",
                   frame.data_symbols, frame.pilot_symbols, frame.symbols, frame.frame_length, frame.sync_pilot_index,
                   frame.len_before_sync, frame.bytes, frame.bits, frame.re_num);
}

} // namespace kosc
