#include "kosc/decoder.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "coding/crc_room.h"
#include "config/qpsk_constants.h"
#include "decode/crc_check.h"
#include "decode/decode_and_check.h"
#include "decode/demodulator.h"
#include "kosc/block_code.h"
#include "kosc/crc.h"
#include "kosc/interleaver.h"
#include "kosc/qpsk.h"
#include "log/log_macros.h"
#include "math/vector_family.h"

using namespace kosc;

namespace {

// Owns the work record of one decoding.
class content_guard {
public:
    explicit content_guard(const soundcomm_paras_t* paras) : paras_(paras) {}
    ~content_guard() { release_decode_content(paras_, &content_); }
    content_guard(const content_guard&) = delete;
    content_guard& operator=(const content_guard&) = delete;
    decode_content_t* get() { return &content_; }

private:
    const soundcomm_paras_t* paras_;
    decode_content_t content_{};
};

// Hard bits of all data symbols, in order; null when memory is short.
kom_vector_uint8* demap_symbols(const soundcomm_paras_t& paras, const decode_content_t& content)
{
    const uint32_t symbol_bits = paras.cfg.ofdm_cfg.sc_num * QPSK_BITS;
    bytes_ptr bits{kom_vector_uint8_alloc(paras.frame.data_symbols * symbol_bits)};
    for (uint32_t i = 0; i < paras.frame.data_symbols; ++i) {
        const bytes_ptr symbol{qpsk_demod(content.sc_data[i])};
        if (kom_vector_uint8_set_by_vector(bits.get(), i * symbol_bits, 1, symbol.get(), 0, 1, symbol_bits) == 0) {
            return nullptr;
        }
    }
    return bits.release();
}

kom_vector_uint8* decode_conv(const soundcomm_paras_t& paras, const kom_vector_uint8* bits)
{
    const uint32_t depunched_len = conv_code_encode_length(paras.conv_code, paras.frame.bits);
    KOSC_RETURN_IF(depunched_len == 0, nullptr, "depunched_len is 0");
    const block_ptr<uint8_t> depunched{alloc_array<uint8_t>(depunched_len)};
    KOSC_RETURN_IF(!depunched, nullptr, "Depunch buf alloc failed.");
    KOSC_RETURN_IF(!depunch_code(paras.punch_template, bits->data, bits->size, depunched.get(), depunched_len), nullptr,
                   "Depunch code failed.");
    const conv_data_t path = conv_code_decode_hard(paras.conv_code, depunched.get(), depunched_len, true);
    const block_ptr<uint8_t> decoded{path.data};
    KOSC_RETURN_IF(!decoded, nullptr, "Conv Decode failed.");
    // The tail is left behind: with a long constraint it would add whole bytes to the frame.
    kom_vector_uint8* const message =
        kom_vector_uint8_alloc_from_array(decoded.get(), path.len, 0, 1, std::min(path.len, paras.frame.bits));
    KOSC_RETURN_IF(message == nullptr, nullptr, "Copy Conv decoded msg failed.");
    return message;
}

// Fills crc_result; false, with a message where memory is short, when the CRCs cannot be compared.
bool check_crcs(const crc_cfg& cfg, decode_content_t* content)
{
    const block_ptr<uint8_t> computed{alloc_zeroed<uint8_t>(crc_room(cfg))};
    KOSC_RETURN_IF(!computed, false, "fail to alloc crc");
    return compare_crcs(cfg, content->bytes->data, content->bytes->size, computed.get(), content->crc_result);
}

// The steps from the samples to equalised symbols, without PAPR reduction.
bool equalise_frame(const soundcomm_paras_t& paras, const double* input, decode_content_t* content)
{
    KOSC_RETURN_IF(!demodulate(paras, input, content), false, "ofdm_demode failed");
    KOSC_RETURN_IF(!estimate_channel(paras, content) || !equalise(paras, content), false, "Fail to equalise.");
    KOSC_RETURN_IF(!restore_papr(paras, content), false, "Fail to restore papr reduction.");
    return true;
}

// All steps from the samples to the comparison of the CRCs.
bool decode_frame(const soundcomm_paras_t& paras, const double* input, decode_content_t* content)
{
    if (!equalise_frame(paras, input, content)) {
        return false;
    }
    content->qpsk_bits = demap_symbols(paras, *content);
    KOSC_RETURN_IF(content->qpsk_bits == nullptr, false, "Fail to qpsk demod.");
    content->deinterleaved_bits = interleaver_decode(content->qpsk_bits, paras.cfg.interleaver_cfg.stride);
    KOSC_RETURN_IF(content->deinterleaved_bits == nullptr, false, "Fail to deinterleaver.");
    content->decoded_bits = paras.cfg.channel_code_cfg.type == KOSC_CODE_CONV
                                ? decode_conv(paras, content->deinterleaved_bits)
                                : decode82(content->deinterleaved_bits);
    KOSC_RETURN_IF(content->decoded_bits == nullptr, false, "Fail to channel decode.");
    content->bytes = vector_binary_to_byte(content->decoded_bits);
    KOSC_RETURN_IF(content->bytes == nullptr, false, "Fail to bin2byte.");
    KOSC_RETURN_IF(!check_crcs(paras.cfg.crc_cfg, content), false, "Fail to calc and cmp crc.");
    return true;
}

// Bit i for each CRC i that does not match; parts above 31 share bit 31.
uint32_t crcs_that_differ(const soundcomm_paras_t& paras, const decode_content_t& content)
{
    constexpr uint32_t LAST_BIT = 31;
    uint32_t differ = 0;
    for (uint32_t i = 0; i < paras.cfg.crc_cfg.group; ++i) {
        differ |= uint32_t{content.crc_result[i] == 0} << std::min(i, LAST_BIT);
    }
    return differ;
}

// Frees a list of vectors that may be missing or partly filled.
void free_symbols(kom_vector_complex** symbols, uint32_t count)
{
    for (uint32_t i = 0; symbols != nullptr && i < count; ++i) {
        kom_vector_complex_free(symbols[i]);
    }
    std::free(symbols);
}

} // namespace

namespace kosc {

bool check_decode_args(const soundcomm_context_t* ctx, const double* input, uint32_t input_len)
{
    KOSC_RETURN_IF(ctx == nullptr, false, "ctx is null");
    KOSC_RETURN_IF(input == nullptr, false, "input is null");
    KOSC_RETURN_IF(input_len < ctx->rx_paras->frame.frame_length, false, "input_len too short %d", input_len);
    return true;
}

uint32_t decode_and_check(const soundcomm_context_t* ctx, const double* input, uint32_t input_len,
                          const message_target& target, uint32_t* failed_crcs)
{
    KOSC_RETURN_IF(!check_decode_args(ctx, input, input_len), KOSC_DECODE_FAILED, "decode paras check failed.");
    const soundcomm_paras_t& paras = *ctx->rx_paras;
    content_guard content{&paras};
    KOSC_RETURN_IF(!init_decode_content(&paras, content.get()), KOSC_DECODE_FAILED, "init_decode_content failed.");
    if (!decode_frame(paras, input, content.get())) {
        return KOSC_DECODE_FAILED;
    }
    *failed_crcs = crcs_that_differ(paras, *content.get());
    uint8_t* const output = *failed_crcs == 0 ? target.correct : target.error;
    const bool wanted = output != nullptr && target.len >= paras.cfg.msg_byte_len;
    KOSC_RETURN_IF(wanted && !copy_decoded_msg(&paras, content.get()->bytes, output, target.len), KOSC_DECODE_FAILED,
                   "Fail to copy_decoded_msg.");
    return *failed_crcs == 0 ? 1 : 0;
}

} // namespace kosc

uint32_t soundcomm_decode(const soundcomm_context_t* ctx, const double* input, uint32_t input_len,
                          uint8_t* correct_output, uint8_t* error_output, uint32_t output_len)
{
    uint32_t failed_crcs = 0;
    return decode_and_check(ctx, input, input_len, {correct_output, error_output, output_len}, &failed_crcs);
}

uint32_t soundcomm_equalise(const soundcomm_context_t* ctx, const double* input, uint32_t input_len, double* symbols,
                            uint32_t room)
{
    KOSC_RETURN_IF(!check_decode_args(ctx, input, input_len), 0, "decode paras check failed.");
    const soundcomm_paras_t& paras = *ctx->rx_paras;
    KOSC_RETURN_IF(symbols == nullptr || room < paras.frame.re_num, 0, "no room for %u symbols", paras.frame.re_num);
    content_guard content{&paras};
    KOSC_RETURN_IF(!init_decode_content(&paras, content.get()), 0, "init_decode_content failed.");
    if (!equalise_frame(paras, input, content.get())) {
        return 0;
    }
    const uint32_t row = 2 * paras.cfg.ofdm_cfg.sc_num;
    for (uint32_t i = 0; i < paras.frame.data_symbols; ++i) {
        std::copy_n(kom_vector_complex_raw_ptr(content.get()->sc_data[i]), row, symbols + size_t{row} * i);
    }
    return paras.frame.re_num;
}

bool init_decode_content(const soundcomm_paras_t* paras, decode_content_t* content)
{
    *content = {};
    const size_t data_count = paras->frame.data_symbols;
    const size_t pilot_count = paras->frame.pilot_symbols;
    content->sc_data = alloc_zeroed<kom_vector_complex*>(data_count);
    KOSC_RETURN_IF(content->sc_data == nullptr, false, "fail to allocate sc_data %d",
                   static_cast<int>(data_count * sizeof(kom_vector_complex*)));
    content->sc_pilot = alloc_zeroed<kom_vector_complex*>(pilot_count);
    KOSC_RETURN_IF(content->sc_pilot == nullptr, false, "fail to allocate sc_pilot %d",
                   static_cast<int>(pilot_count * sizeof(kom_vector_complex*)));
    content->crc_result = alloc_zeroed<uint8_t>(paras->cfg.crc_cfg.group);
    KOSC_RETURN_IF(content->crc_result == nullptr, false, "fail to allocate crc_result %d", paras->cfg.crc_cfg.group);
    return true;
}

void release_decode_content(const soundcomm_paras_t* paras, decode_content_t* content)
{
    free_symbols(content->sc_data, paras->frame.data_symbols);
    free_symbols(content->sc_pilot, paras->frame.pilot_symbols);
    std::free(content->crc_result);
    kom_vector_uint8_free(content->qpsk_bits);
    kom_vector_uint8_free(content->deinterleaved_bits);
    kom_vector_uint8_free(content->decoded_bits);
    kom_vector_uint8_free(content->bytes);
    *content = {};
}

bool copy_decoded_msg(const soundcomm_paras_t* paras, const kom_vector_uint8* bytes, uint8_t* output,
                      uint32_t output_len)
{
    const crc_cfg& cfg = paras->cfg.crc_cfg;
    if (bytes == nullptr || cfg.put_crc > KOSC_CRC_AT_LAST) {
        return false;
    }
    // With all CRCs at the end the message is one part.
    const uint32_t parts = cfg.put_crc == KOSC_CRC_AT_LAST ? 1 : cfg.group;
    const uint32_t part_len = paras->cfg.msg_byte_len / parts;
    const uint64_t part_stride = uint64_t{part_len} + cfg.bits / CHAR_BIT;
    for (uint32_t s = 0; s < parts; ++s) {
        const uint64_t from = s * part_stride;
        const uint32_t to = s * part_len;
        if (from + part_len > bytes->size || to > output_len ||
            !bounded_copy(output + to, output_len - to, bytes->data + from, part_len)) {
            return false;
        }
    }
    return true;
}
