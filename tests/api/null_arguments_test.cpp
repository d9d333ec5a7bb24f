// What every step of the core answers when there is nothing to work on: what its header says, whatever else it is
// given.
#include "support/modem.h"

namespace {

// The three families of vectors have the same functions for other elements.
#define ANSWERS_OF(V, array)                                                                                           \
    {#V " from", !V##_alloc_from_array(nullptr, 9, 0, 1, 1) && !V##_alloc_from_vector(nullptr, 0, 1, 1)},              \
        {#V " of no record", V##_size(nullptr) + V##_stride(nullptr) == 0 && !V##_raw_ptr(nullptr)},                   \
        {#V " view", !V##_const_view_array(nullptr, 9, 0, 1, 1).data && !V##_const_subvector(nullptr, 0, 1, 1).data},  \
        {#V " view outside", !V##_const_view_array(array, 2, 2, 1, 1).data},                                           \
    {                                                                                                                  \
#V " copy", V##_set_by_vector(&empty_##V, 0, 1, nullptr, 0, 1, 1) +                                            \
                            V##_set_by_vector(nullptr, 0, 1, &empty_##V, 0, 1, 1) +                                    \
                            V##_set_by_vector(&empty_##V, 0, 1, &empty_##V, 0, 1, 1) ==                                \
                        0                                                                                              \
    }

struct answer {
    const char* of;
    bool right;
};

TEST(Core, AnswersNullPointersAsItsHeadersSay)
{
    const log_capture quiet{0};
    kom_vector_uint8 empty_kom_vector_uint8{};
    kom_vector empty_kom_vector{};
    kom_vector_complex empty_kom_vector_complex{};
    uint8_t b[8] = {};
    double d[8] = {};
    const crc_cfg crc = soundcomm_default_cfg()->crc_cfg;
    const uint32_t ones[] = {1, 3};
    const code_ptr code{conv_code_init(3, ones, 2)};
    const soft_viterbi_ptr soft{soft_viterbi_init(code.get(), 4)};
    const smoother_ptr smoother{channel_smoother_init(32, 1024, 256)};
    const punch_ptr punch{get_punch_template(8, 6)};
    const pattern_ptr pattern{calc_phase_pattern(d, 1)};
    const context_ptr ctx = make_context();
    frame_struct_t frame{};
    const answer answers[] = {
        ANSWERS_OF(kom_vector_uint8, b),
        ANSWERS_OF(kom_vector, d),
        ANSWERS_OF(kom_vector_complex, d),
        {"element", kom_vector_uint8_get(nullptr, 0) + kom_vector_get(nullptr, 0) +
                            kom_vector_get(&empty_kom_vector, 0) + kom_vector_complex_get(nullptr, 0).re ==
                        0},
        {"parts", !kom_vector_complex_real(nullptr) && !kom_vector_complex_imag(&empty_kom_vector_complex)},
        {"quotient", kom_vector_complex_div_inplace(nullptr, &empty_kom_vector_complex) != 0 &&
                         kom_vector_complex_div_inplace(&empty_kom_vector_complex, nullptr) != 0},
        {"queue", vector_capacity(nullptr) + vector_size(nullptr) + vector_unused(nullptr) == 0},
        {"queue's element", !vector_view(nullptr, 0, 1) && vector_at(nullptr, 0) + vector_back(nullptr) == 0},
        {"queue's change",
         !vector_set(nullptr, 0, 1) && !vector_push_back(nullptr, 1) && vector_remove_front(nullptr, 1) == 0},
        {"CRC", !crc16(nullptr, b, 1) && !crc16(b, nullptr, 1)},
        {"CRCs", calculate_crc(b, 2, nullptr, b) + calculate_crc(b, 2, &crc, nullptr) == 0},
        {"bits", !byte2bin(nullptr, b, 1) && !byte2bin(b, nullptr, 1) && !vector_byte_to_binary(nullptr)},
        {"bytes", !bin2byte(nullptr, b, 8) && !bin2byte(b, nullptr, 8) && !vector_binary_to_byte(nullptr)},
        {"code's length", conv_code_encode_length(nullptr, 8) + conv_code_encode_length(code.get(), 0) == 0},
        {"code", !conv_code_encode(nullptr, b, 8).data && !conv_code_encode(code.get(), b, 0).data},
        {"decoder", !conv_code_decode_hard(code.get(), nullptr, 8, true).data},
        {"soft decoder", !soft_viterbi_init(nullptr, 4) && !soft_viterbi_decode(nullptr, d, 4, b) &&
                             !soft_viterbi_decode(soft.get(), nullptr, 4, b) &&
                             !soft_viterbi_decode(soft.get(), d, 4, nullptr)},
        {"block code", !linear_encode(nullptr, b, 8, 2) && !linear_encode(&empty_kom_vector_uint8, nullptr, 8, 2)},
        {"syndromes", !syndrome_decode(nullptr, b, b, 8, 2) &&
                          !syndrome_decode(&empty_kom_vector_uint8, nullptr, b, 8, 2) &&
                          !syndrome_decode(&empty_kom_vector_uint8, b, nullptr, 8, 2) &&
                          !syndrome_decode(&empty_kom_vector_uint8, b, b, 2, 2)},
        {"puncture", !punch_code(nullptr, b, 8, b, 6) && !punch_code(punch.get(), nullptr, 8, b, 6) &&
                         !punch_code(punch.get(), b, 8, nullptr, 6)},
        {"puncture in place", !punch_code_inplace(nullptr, b, 8) && !punch_code_inplace(punch.get(), nullptr, 8) &&
                                  !punch_code_inplace(punch.get(), b, 7)},
        {"depuncture", !depunch_code(nullptr, b, 6, b, 8) && !depunch_code(punch.get(), nullptr, 6, b, 8) &&
                           !depunch_code(punch.get(), b, 6, nullptr, 8) && !depunch_code(punch.get(), b, 6, b, 7)},
        {"interleaver", !interleaver_decode(nullptr, 2) && !interleaver_encode(nullptr, 2)},
        {"QPSK", !qpsk_mod(nullptr) && !qpsk_demod(nullptr)},
        {"OFDM", !ofdm_map_subcarries(nullptr, 8, 1) && !ofdm_mod_halfcomplex(nullptr) && !ofdm_demod_real(nullptr)},
        {"pattern", !calc_phase_pattern(nullptr, 1) && !calc_phase_pattern(d, 0)},
        {"shift", !phase_shift(nullptr, 1, pattern.get()) && !phase_shift(d, 1, nullptr)},
        {"restore", !phase_restore(nullptr, 1, pattern.get()) && !phase_restore(d, 1, nullptr)},
        {"smoother", !channel_smoother_init(1, 1024, 256) && !channel_smoother_init(513, 1024, 256) &&
                         !channel_smoother_init(32, 1024, 0) && !channel_smoother_init(32, 1024, 1024)},
        {"drift", !drift_search_init(nullptr, smoother.get()) && !drift_search_init(ctx->rx_paras, nullptr) &&
                      !drift_search_init(ctx->rx_paras, smoother.get())}, // of another number of subcarriers
        {"filter", !create_butterworth_bandpass1(0, 1, 0.2, 0.4) && filter(d, 0, d, 1, d, 1) == 0 &&
                       filter(d, 1, d, 0, d, 1) == 0},
        {"layout", !init_frame_struct(nullptr, &frame) && soundcomm_get_frame_length_from_cfg(nullptr) == 0},
        {"set", soundcomm_get_paras(ctx.get(), 1) == ctx->rx_paras && !soundcomm_get_paras(ctx.get(), 2)},
        {"message", !copy_decoded_msg(ctx->rx_paras, nullptr, b, 8)},
        {"quality", soundcomm_get_frame_quality(nullptr).attempts == 0},
    };
    for (const answer& a : answers) {
        EXPECT_TRUE(a.right) << a.of;
    }
    kom_vector_uint8_set(nullptr, 0, 1), kom_vector_set(nullptr, 0, 1), kom_vector_complex_set(nullptr, 0, 1, 1);
    kom_vector_uint8_set_zero(nullptr), kom_vector_set_zero(nullptr), kom_vector_complex_set_zero(nullptr);
    kom_vector_uint8_reverse(nullptr), kom_vector_reverse(nullptr), kom_vector_complex_reverse(nullptr);
    kom_vector_uint8_free(nullptr), kom_vector_free(nullptr), kom_vector_complex_free(nullptr), vector_free(nullptr);
    butterworth_bandpass_reset_buffer(nullptr), angle_to_radian(nullptr, d, 1), angle_to_radian(d, nullptr, 1);
    do_fade_in_out({1, 1}, nullptr, 4), soundcomm_release(nullptr), data_container_free(nullptr);
}

} // namespace
