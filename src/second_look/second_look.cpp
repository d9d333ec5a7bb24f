#include "kosc/second_look.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "decode/crc_check.h"
#include "kosc/crc.h"
#include "kosc/decoder.h"
#include "log/log_macros.h"
#include "math/vector_family.h"
#include "second_look/frame_channel.h"

using namespace kosc;

namespace {

// Explanations that are this incoherent are not tried: so little adds up in noise, and in no frame that decodes.
constexpr double MIN_COHERENCE = 0.25;
constexpr double AMPLITUDE = 0.7071067811865475; // of a QPSK axis

// Writes what the decoded bits would have been sent as into the data symbols of `sent`.
void encode_again(const second_look_t& look)
{
    const soundcomm_paras_t& paras = *look.paras;
    const conv_code_t& code = *paras.conv_code;
    const uint32_t n = code.polynomial_num;
    const uint32_t frame_bits = 2 * paras.frame.re_num;
    std::fill_n(look.levels, frame_bits, -AMPLITUDE);
    uint32_t state = 0;
    for (uint32_t t = 0; t < look.coded_len / n; ++t) {
        const uint32_t shift_register = state | uint32_t{look.bits[t]} << (code.constraint - 1);
        for (uint32_t i = 0; i < n; ++i) {
            const uint32_t position = look.position[t * n + i];
            if (position != NO_POSITION) {
                look.levels[position] = code.output_table[shift_register * n + i] != 0 ? AMPLITUDE : -AMPLITUDE;
            }
        }
        state = shift_register >> 1;
    }
    if (paras.phase_pattern != nullptr) {
        phase_shift(look.levels, paras.frame.re_num, paras.phase_pattern);
    }
    const double* next = look.levels;
    const uint32_t row = 2 * paras.cfg.ofdm_cfg.sc_num;
    for (uint32_t i = 0; i < paras.frame.symbols; ++i) {
        if (!is_pilot(look, i)) {
            std::copy_n(next, row, sent(look, i));
            next += row;
        }
    }
}

// Soft values of one data symbol into its place in `levels`: matched to the channel, or with the channel divided out
// against the noise where the values are spread over all subcarriers.
void demap_symbol(const second_look_t& look, uint32_t i, double noise, double* levels)
{
    const soundcomm_paras_t& paras = *look.paras;
    const uint32_t sc_num = paras.cfg.ofdm_cfg.sc_num;
    const bool spread = paras.cfg.ofdm_cfg.papr == KOSC_PAPR_DFT_SPREAD;
    const kom_complex back = {std::cos(look.phases[i]), -std::sin(look.phases[i])};
    for (uint32_t k = 0; k < sc_num; ++k) {
        const kom_complex h = load(look.response, k);
        const double weight = spread ? 1.0 / (power(h) + noise) : 1.0;
        store(levels, k, load(received(look, i), k) * conj(h) * back * kom_complex{weight, 0.0});
    }
    if (spread) {
        dft_spread_demod(levels, sc_num);
    } else if (paras.phase_pattern != nullptr) {
        phase_restore(levels, sc_num, paras.phase_pattern);
    }
}

// Soft values of the whole frame. With `leave_out`, a symbol that took part in the estimate is judged by the others
// alone: its own noise would only confirm what was decided before.
void demap(const second_look_t& look, const channel_estimate& estimate, bool leave_out)
{
    const uint32_t rank = look.smoother->rank;
    const uint32_t row = 2 * look.paras->cfg.ofdm_cfg.sc_num;
    const double others = estimate.symbols - (leave_out ? 1.0 : 0.0);
    const double noise_ratio = estimate.noise / (estimate.signal * others);
    double* levels = look.levels;
    for (uint32_t i = 0; i < look.paras->frame.symbols; ++i) {
        if (is_pilot(look, i)) {
            continue;
        }
        const kom_complex back = {std::cos(look.phases[i]), -std::sin(look.phases[i])};
        for (uint32_t r = 0; r < rank; ++r) {
            const kom_complex own = load(coefficients(look, i), r) * back;
            const kom_complex rest = leave_out ? load(look.joint, r) - own : load(look.joint, r);
            store(look.own, r, rest * kom_complex{1.0 / others, 0.0});
        }
        channel_smoother_synthesise(look.smoother, look.own, noise_ratio, look.response);
        demap_symbol(look, i, estimate.noise, levels);
        levels += row;
    }
}

// From the frame's soft values to bits, bytes and the verdict of the CRCs.
bool decode_levels(const second_look_t& look)
{
    const soundcomm_paras_t& paras = *look.paras;
    for (uint32_t j = 0; j < look.coded_len; ++j) {
        look.soft[j] = look.position[j] == NO_POSITION ? 0.0 : look.levels[look.position[j]];
    }
    const crc_cfg& crc = paras.cfg.crc_cfg;
    return soft_viterbi_decode(look.viterbi, look.soft, look.coded_len / paras.conv_code->polynomial_num, look.bits) &&
           bin2byte(look.bytes, look.bits, paras.frame.bits) &&
           compare_crcs(crc, look.bytes, paras.frame.bytes, look.crc_scratch, look.crc_matches) &&
           std::memchr(look.crc_matches, 0, crc.group) == nullptr;
}

void describe(const channel_estimate& estimate, frame_quality_t* quality)
{
    constexpr double DB = 10.0;
    quality->snr_db = DB * std::log10(estimate.signal / std::max(estimate.noise, 1e-30));
    quality->evm = std::sqrt(estimate.noise / estimate.signal);
}

// All decodings under one explanation of the drift; true when the CRCs match.
bool try_drift(const second_look_t& look, const frame_clock& clock, frame_quality_t* quality)
{
    const uint32_t steps = look.coded_len / look.paras->conv_code->polynomial_num;
    // Spread values have no constant power, which measuring the channel by them relies on.
    const int passes = look.paras->cfg.ofdm_cfg.papr == KOSC_PAPR_DFT_SPREAD ? 1 : KOSC_MAX_PASSES;
    demodulate(look, clock);
    channel_estimate estimate = estimate_by_pilots(look);
    for (int pass = 0; pass < passes; ++pass) {
        if (pass != 0) {
            std::copy_n(look.bits, steps, look.earlier_bits);
            encode_again(look);
            estimate = estimate_by_all(look);
        }
        demap(look, estimate, pass != 0);
        ++quality->attempts;
        if (decode_levels(look)) {
            return true;
        }
        if (pass == 0) {
            describe(estimate, quality);
        } else if (std::memcmp(look.bits, look.earlier_bits, steps) == 0) {
            break; // every further pass would decide the same
        }
    }
    return false;
}

// Describes a decoded frame by everything in it, now that all of it is known.
void measure_decoded(const second_look_t& look, frame_quality_t* quality)
{
    if (look.paras->cfg.ofdm_cfg.papr == KOSC_PAPR_DFT_SPREAD) {
        return; // the pilots' figures stay
    }
    encode_again(look);
    const channel_estimate estimate = estimate_by_all(look);
    describe(estimate, quality);
    quality->evm = error_vector_magnitude(look, estimate);
}

bool look_again(const second_look_t& look, const double* input, frame_quality_t* quality)
{
    remove_low_sounds(look, input);
    drift_t drifts[KOSC_MAX_DRIFTS];
    const uint32_t count = drift_search_find(look.search, look.frame, drifts, KOSC_MAX_DRIFTS);
    const double length = look.paras->frame.frame_length;
    for (uint32_t d = 0; d < count && drifts[d].coherence >= MIN_COHERENCE; ++d) {
        const frame_clock clock = make_clock(*look.paras, drifts[d].rate, drifts[d].bend);
        frame_quality_t tried = *quality;
        tried.coherence = drifts[d].coherence;
        tried.drift_ppm = 1e6 * clock.rate_at(length / 2);
        tried.drift_change_ppm = 1e6 * clock.bend * length;
        const bool decoded = try_drift(look, clock, &tried);
        if (d == 0 || decoded) {
            *quality = tried;
        }
        quality->attempts = tried.attempts;
        if (decoded) {
            measure_decoded(look, quality);
            return true;
        }
    }
    return false;
}

bool check_args(const soundcomm_context_t* ctx, const double* input, uint32_t input_len)
{
    KOSC_RETURN_IF(ctx == nullptr, false, "ctx is null");
    KOSC_RETURN_IF(input == nullptr, false, "input is null");
    KOSC_RETURN_IF(input_len < ctx->rx_paras->frame.frame_length, false, "input_len too short %d", input_len);
    KOSC_RETURN_IF(ctx->rx_paras->second_look == nullptr, false, "second look is off");
    return true;
}

} // namespace

bool soundcomm_config_second_look(soundcomm_context_t* ctx, uint32_t enable)
{
    KOSC_RETURN_IF(ctx == nullptr, false, "ctx is null");
    soundcomm_paras_t* const paras = ctx->rx_paras;
    if (enable == KOSC_SECOND_LOOK_OFF) {
        free_second_look(paras->second_look);
        paras->second_look = nullptr;
        return true;
    }
    if (paras->second_look == nullptr) {
        paras->second_look = make_second_look(*paras);
    }
    if (paras->second_look == nullptr) {
        KOSC_LOG_WARN("no second look for this configuration");
        return false;
    }
    paras->second_look->mode = enable == KOSC_SECOND_LOOK_MEASURE ? KOSC_SECOND_LOOK_MEASURE : KOSC_SECOND_LOOK_ON;
    return true;
}

uint32_t soundcomm_decode_second_look(const soundcomm_context_t* ctx, const double* input, uint32_t input_len,
                                      uint8_t* output, uint32_t output_len, frame_quality_t* quality)
{
    if (!check_args(ctx, input, input_len)) {
        return KOSC_DECODE_FAILED;
    }
    const soundcomm_paras_t& paras = *ctx->rx_paras;
    const second_look_t& look = *paras.second_look;
    frame_quality_t measured{};
    measured.needed = true;
    measured.decoded = look_again(look, input, &measured);
    if (quality != nullptr) {
        *quality = measured;
    }
    if (measured.decoded && output != nullptr && output_len >= paras.cfg.msg_byte_len) {
        const kom_vector_uint8 block =
            kom_vector_uint8_const_view_array(look.bytes, paras.frame.bytes, 0, 1, paras.frame.bytes);
        copy_decoded_msg(&paras, &block, output, output_len);
    }
    return measured.decoded ? 1 : 0;
}

frame_quality_t soundcomm_get_frame_quality(const soundcomm_context_t* ctx)
{
    const bool known = ctx != nullptr && ctx->rx_paras->second_look != nullptr;
    return known ? ctx->rx_paras->second_look->quality : frame_quality_t{};
}
