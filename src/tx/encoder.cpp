#include "kosc/encoder.h"

#include <climits>

#include "coding/crc_room.h"
#include "kosc/block_code.h"
#include "kosc/crc.h"
#include "kosc/interleaver.h"
#include "kosc/qpsk.h"
#include "log/log_macros.h"
#include "math/vector_family.h"
#include "tx/frame_generator.h"

using namespace kosc;

int soundcomm_encode(const soundcomm_paras_t* paras, const uint8_t* input, uint32_t input_len, double* output,
                     uint32_t output_len)
{
    if (!check_encode_args(paras, input, input_len, output, output_len)) {
        return -1;
    }
    const soundcomm_cfg_t& cfg = paras->cfg;
    const bytes_ptr block{add_crc(input, input_len, &cfg.crc_cfg)};
    KOSC_RETURN_IF(!block, -1, "add_crc failed");
    const bytes_ptr bits{vector_byte_to_binary(block.get())};
    KOSC_RETURN_IF(!bits, -1, "vector_byte_to_binary failed");
    const bytes_ptr coded{add_channel_code(paras, bits.get())};
    KOSC_RETURN_IF(!coded, -1, "add_channel_code failed");
    const bytes_ptr spread{interleaver_encode(coded.get(), cfg.interleaver_cfg.stride)};
    KOSC_RETURN_IF(!spread, -1, "interleaver_encode failed");
    const complex_ptr symbols{qpsk_mod(spread.get())};
    KOSC_RETURN_IF(!symbols, -1, "qpsk_mod failed");
    KOSC_RETURN_IF(!do_papr_reduction(paras, symbols.get()), -1, "Fail to do PAPR reduction.");
    KOSC_RETURN_IF(!generate_frame(*paras, symbols.get(), output), -1, "FrameGenerate failed");
    return 0;
}

bool check_encode_args(const soundcomm_paras_t* paras, const uint8_t* input, uint32_t input_len, const double* output,
                       uint32_t output_len)
{
    KOSC_RETURN_IF(paras == nullptr, false, "soundcomm_context_t is NULL");
    KOSC_RETURN_IF(input == nullptr, false, "input is NULL");
    KOSC_RETURN_IF(output == nullptr, false, "output is NULL");
    const uint32_t frame_len = paras->frame.frame_length;
    KOSC_RETURN_IF(frame_len > output_len, false, "output_len(%u) is less than frame_len(%u)", output_len, frame_len);
    const uint32_t msg_len = paras->cfg.msg_byte_len;
    KOSC_RETURN_IF(input_len != msg_len, false, "input_len(%u) is not equal to msg_byte_len(%u)", input_len, msg_len);
    KOSC_RETURN_IF(paras->cfg.crc_cfg.put_crc != KOSC_CRC_AT_LAST, false, "Encode only support crc AT LAST");
    return true;
}

kom_vector_uint8* add_crc(const uint8_t* input, uint32_t input_len, const crc_cfg* cfg)
{
    const uint64_t crc_len = uint64_t{cfg->bits / CHAR_BIT} * cfg->group;
    const uint64_t block_len = input_len + crc_len;
    // CRCs go through an array of their own: more may be written than is configured and sent.
    const block_ptr<uint8_t> crcs{alloc_zeroed<uint8_t>(crc_room(*cfg))};
    bytes_ptr block{block_len <= UINT32_MAX ? kom_vector_uint8_alloc(static_cast<uint32_t>(block_len)) : nullptr};
    KOSC_RETURN_IF(!crcs || !block, nullptr, "alloc crc buff failed");
    KOSC_RETURN_IF(calculate_crc(input, input_len, cfg, crcs.get()) != crc_len, nullptr, "calulate crc failed");
    bounded_copy(block->data, block_len, input, input_len);
    bounded_copy(block->data + input_len, crc_len, crcs.get(), crc_len);
    return block.release();
}

kom_vector_uint8* add_channel_code(const soundcomm_paras_t* paras, const kom_vector_uint8* bits)
{
    return paras->cfg.channel_code_cfg.type == KOSC_CODE_CONV ? add_conv_code(paras, bits) : encode82(bits);
}

kom_vector_uint8* add_conv_code(const soundcomm_paras_t* paras, const kom_vector_uint8* bits)
{
    const uint32_t size = kom_vector_uint8_size(bits);
    const conv_data_t encoded = conv_code_encode(paras->conv_code, kom_vector_uint8_raw_ptr(bits), size);
    const block_ptr<uint8_t> coded{encoded.data};
    bytes_ptr punctured{kom_vector_uint8_alloc(size * conv_code_rate(paras->conv_code))};
    KOSC_RETURN_IF(!punctured, nullptr, "Fail to alloc msg.");
    KOSC_RETURN_IF(!punch_code(paras->punch_template, coded.get(), encoded.len, punctured->data, punctured->size),
                   nullptr, "Punch code failed.");
    return punctured.release();
}

bool do_papr_reduction(const soundcomm_paras_t* paras, kom_vector_complex* qpsk)
{
    switch (paras->cfg.ofdm_cfg.papr) {
    case KOSC_PAPR_NONE:
        return true;
    case KOSC_PAPR_SHORT_PATTERN:
    case KOSC_PAPR_LONG_PATTERN:
        return phase_shift(kom_vector_complex_raw_ptr(qpsk), kom_vector_complex_size(qpsk), paras->phase_pattern);
    case KOSC_PAPR_DFT_SPREAD:
        return dft_spread_frame(paras, qpsk);
    default:
        KOSC_LOG_ERROR("Unknown papr reduction type.");
        return false;
    }
}

bool dft_spread_frame(const soundcomm_paras_t* paras, kom_vector_complex* qpsk)
{
    const uint32_t sc_num = paras->cfg.ofdm_cfg.sc_num;
    const uint32_t size = kom_vector_complex_size(qpsk);
    KOSC_RETURN_IF(size % sc_num != 0, false, "Data size %d can't be divided by sc num %d", size, sc_num);
    for (uint32_t i = 0; i < paras->frame.data_symbols; ++i) {
        const uint64_t first = uint64_t{i} * sc_num;
        if (first >= size || !dft_spread_mod(qpsk->data + 2 * first, sc_num)) {
            return false;
        }
    }
    return true;
}
