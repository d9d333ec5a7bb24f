#include "second_look/soft_decoder.h"

#include <algorithm>
#include <cstring>
#include <numeric>

#include "coding/conv_steps.h"
#include "coding/crc_room.h"
#include "coding/permute.h"
#include "config/frame_symbols.h"
#include "config/qpsk_constants.h"
#include "decode/crc_check.h"
#include "kosc/crc.h"
#include "kosc/papr.h"
#include "platform/owned.h"

namespace kosc {
namespace {

// Where each code bit is sent: the indices of the frame's bits, de-interleaved and de-punctured as the bits are.
bool find_positions(const soundcomm_paras_t& paras, uint32_t* position)
{
    const uint32_t frame_bits = QPSK_BITS * paras.frame.re_num;
    const uint32_t stride = paras.cfg.interleaver_cfg.stride;
    const block_ptr<uint32_t> sent{alloc_array<uint32_t>(frame_bits)};
    const block_ptr<uint32_t> straight{alloc_array<uint32_t>(frame_bits)};
    if (!sent || !straight || stride == 0 || frame_bits < stride || frame_bits != paras.punch_template->kept_len) {
        return false;
    }
    std::iota(sent.get(), sent.get() + frame_bits, 0U);
    interleave(sent.get(), 1, frame_bits, frame_bits / stride, NO_POSITION, straight.get());
    depuncture(*paras.punch_template, straight.get(), NO_POSITION, position);
    return true;
}

bool make_byte_arrays(const soundcomm_paras_t& paras, soft_decoder* decoder)
{
    const crc_cfg& crc = paras.cfg.crc_cfg;
    const uint64_t scratch_len = crc_room(crc);
    decoder->byte_block =
        alloc_zeroed<uint8_t>(uint64_t{decoder->step_num} + paras.frame.bytes + scratch_len + crc.group);
    if (decoder->byte_block == nullptr) {
        return false;
    }
    decoder->bits = decoder->byte_block;
    decoder->bytes = decoder->bits + decoder->step_num;
    decoder->crc_scratch = decoder->bytes + paras.frame.bytes;
    decoder->crc_matches = decoder->crc_scratch + scratch_len;
    return true;
}

} // namespace

bool init_soft_decoder(const soundcomm_paras_t& paras, soft_decoder* decoder)
{
    decoder->paras = &paras;
    decoder->coded_len = conv_code_encode_length(paras.conv_code, paras.frame.bits);
    decoder->step_num = decoder->coded_len / paras.conv_code->polynomial_num;
    decoder->viterbi = soft_viterbi_init(paras.conv_code, decoder->step_num);
    decoder->position = alloc_array<uint32_t>(decoder->coded_len);
    decoder->coded_llr = alloc_array<double>(decoder->coded_len);
    decoder->qpsk = alloc_array<double>(uint64_t{2} * paras.frame.re_num);
    return decoder->viterbi != nullptr && decoder->position != nullptr && decoder->coded_llr != nullptr &&
           decoder->qpsk != nullptr && make_byte_arrays(paras, decoder) && find_positions(paras, decoder->position);
}

void release_soft_decoder(soft_decoder* decoder)
{
    soft_viterbi_free(decoder->viterbi);
    std::free(decoder->position);
    std::free(decoder->coded_llr);
    std::free(decoder->qpsk);
    std::free(decoder->byte_block);
    *decoder = {};
}

decoded_block decode_soft(const soft_bits& bits, soft_decoder* decoder)
{
    const soundcomm_paras_t& paras = *decoder->paras;
    for (uint32_t j = 0; j < decoder->coded_len; ++j) {
        decoder->coded_llr[j] = decoder->position[j] == NO_POSITION ? 0.0 : bits.llr[decoder->position[j]];
    }
    const crc_cfg& crc = paras.cfg.crc_cfg;
    const bool matching =
        soft_viterbi_decode(decoder->viterbi, decoder->coded_llr, decoder->step_num, decoder->bits) &&
        bin2byte(decoder->bytes, decoder->bits, paras.frame.bits) &&
        compare_crcs(crc, decoder->bytes, paras.frame.bytes, decoder->crc_scratch, decoder->crc_matches) &&
        std::memchr(decoder->crc_matches, 0, crc.group) == nullptr;
    return {decoder->bits, decoder->bytes, matching};
}

void place_pilots(const soundcomm_paras_t& paras, double* symbols)
{
    const size_t row = size_t{2} * paras.cfg.ofdm_cfg.sc_num;
    for (uint32_t i = 0; i < paras.frame.symbols; ++i) {
        const frame_symbol place = frame_symbol_at(paras, i);
        if (place.is_pilot && place.number < paras.frame.pilot_symbols) {
            std::copy_n(pilot_at(paras, place.number).sequence->data, row, symbols + row * i);
        }
    }
}

void encode_block(const decoded_block& block, soft_decoder* decoder, double* symbols)
{
    const soundcomm_paras_t& paras = *decoder->paras;
    double* const qpsk = decoder->qpsk;
    std::fill_n(qpsk, size_t{2} * paras.frame.re_num, QPSK_LEVEL[0]); // what no code bit is sent in
    conv_encode(*paras.conv_code, block.bits, paras.frame.bits, [&](size_t j, uint8_t bit) {
        if (decoder->position[j] != NO_POSITION) {
            qpsk[decoder->position[j]] = QPSK_LEVEL[bit != 0];
        }
    });
    if (paras.phase_pattern != nullptr) {
        phase_shift(qpsk, paras.frame.re_num, paras.phase_pattern);
    }
    const size_t row = size_t{2} * paras.cfg.ofdm_cfg.sc_num;
    for (uint32_t i = 0; i < paras.frame.symbols; ++i) {
        const frame_symbol place = frame_symbol_at(paras, i);
        if (!place.is_pilot) {
            std::copy_n(qpsk + row * place.number, row, symbols + row * i);
        }
    }
}

void encode_message(const uint8_t* message, soft_decoder* decoder, double* symbols)
{
    const soundcomm_paras_t& paras = *decoder->paras;
    const uint32_t msg_len = paras.cfg.msg_byte_len;
    std::copy_n(message, msg_len, decoder->bytes);
    const uint32_t crc_len = calculate_crc(message, msg_len, &paras.cfg.crc_cfg, decoder->crc_scratch);
    std::copy_n(decoder->crc_scratch, std::min(crc_len, paras.frame.bytes - msg_len), decoder->bytes + msg_len);
    std::fill_n(decoder->bits, decoder->step_num, uint8_t{0});
    byte2bin(decoder->bits, decoder->bytes, paras.frame.bytes);
    encode_block({decoder->bits, decoder->bytes, true}, decoder, symbols);
}

} // namespace kosc
