#include "kosc/second_look.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "config/qpsk_constants.h"
#include "decode/decode_and_check.h"
#include "kosc/decoder.h"
#include "log/log_macros.h"
#include "math/vector_family.h"
#include "second_look/second_look_area.h"
#include "second_look/soft_demodulator.h"

using namespace kosc;

namespace {

// Drifts that leave the pilots this incoherent are not tried: so little adds up in noise, and in no frame that decodes.
constexpr double MIN_COHERENCE = 0.25;

// Soft bits of the frame under an estimate of its channel.
soft_bits demodulate(const frame_clock& clock, const channel_estimate& estimate, bool leave_out, second_look_t* look)
{
    look->estimate = estimate;
    demap_frame(estimate, leave_out, &look->channel, look->llr);
    return {look->llr, QPSK_BITS * look->paras->frame.re_num, estimate, clock};
}

// The error vector magnitude, against what was received without noise, is 1 / sqrt(SNR).
void describe(const channel_estimate& estimate, frame_quality_t* quality)
{
    constexpr double DB = 10.0;
    quality->snr_db = DB * std::log10(estimate.signal / std::max(estimate.noise, 1e-30));
    quality->evm = std::sqrt(estimate.noise / estimate.signal);
}

// All decodings under one drift: first with the channel of the pilots, then with that of all symbols, as the bits
// decoded before would have been sent: decision-directed estimation, with the decoder's decisions. The last decoding,
// whose CRCs match unless all have failed. Source: Proakis 2001, "Digital communications", chapter 10.
decoded_block decode_under(const frame_clock& clock, second_look_t* look, frame_quality_t* quality)
{
    const uint32_t steps = look->decoder.step_num;
    // Spread values have no constant power, which measuring the channel by them relies on.
    const int passes = look->paras->cfg.ofdm_cfg.papr == KOSC_PAPR_DFT_SPREAD ? 1 : KOSC_MAX_PASSES;
    transform_symbols(clock, &look->channel);
    const channel_estimate pilots = estimate_by_pilots(look->sent, &look->channel);
    decoded_block block = decode_soft(demodulate(clock, pilots, false, look), &look->decoder);
    ++quality->attempts;
    if (!block.crcs_match) {
        describe(pilots, quality);
    }
    for (int pass = 1; pass < passes && !block.crcs_match; ++pass) {
        std::copy_n(block.bits, steps, look->earlier_bits);
        encode_block(block, &look->decoder, look->sent);
        const channel_estimate all = estimate_by_all(look->sent, &look->channel);
        block = decode_soft(demodulate(clock, all, true, look), &look->decoder);
        ++quality->attempts;
        if (!block.crcs_match && std::memcmp(block.bits, look->earlier_bits, steps) == 0) {
            break; // every further pass would decide the same
        }
    }
    return block;
}

// Describes a decoded frame by everything in it, now that all of it is known.
void measure_decoded(const decoded_block& block, second_look_t* look, frame_quality_t* quality)
{
    if (look->paras->cfg.ofdm_cfg.papr == KOSC_PAPR_DFT_SPREAD) {
        return; // the pilots' figures stay
    }
    encode_block(block, &look->decoder, look->sent);
    const channel_estimate estimate = estimate_by_all(look->sent, &look->channel);
    look->estimate = estimate;
    describe(estimate, quality);
    quality->evm = error_vector_magnitude(look->sent, estimate, &look->channel);
}

// Decodes a frame under one candidate for its drift after the other, the most coherent first.
decoded_block decode_frame(const double* frame, second_look_t* look, frame_quality_t* quality)
{
    take_frame(frame, &look->channel);
    drift_t drifts[KOSC_MAX_DRIFTS];
    const uint32_t count = drift_search_find(look->search, look->channel.samples, drifts, KOSC_MAX_DRIFTS);
    const double length = look->paras->frame.frame_length;
    // Where frames may overlap, at last the best drift once more with symbols weighed. First without: weights have
    // noise of their own, and frames in stationary noise would lose by them.
    const uint32_t tries = count != 0 && look->paras->crowd != nullptr ? count + 1 : count;
    for (uint32_t attempt = 0; attempt < tries; ++attempt) {
        const uint32_t d = attempt < count ? attempt : 0;
        look->channel.weighted = attempt >= count;
        if (drifts[d].coherence < MIN_COHERENCE) {
            continue;
        }
        const frame_clock clock = make_clock(*look->paras, drifts[d].rate, drifts[d].rate_change);
        frame_quality_t tried = *quality;
        tried.coherence = drifts[d].coherence;
        tried.drift_ppm = 1e6 * clock.rate_at(length / 2);
        tried.drift_change_ppm = 1e6 * clock.rate_change * length;
        const decoded_block block = decode_under(clock, look, &tried);
        if (attempt == 0 || block.crcs_match) {
            *quality = tried;
        }
        quality->attempts = tried.attempts;
        if (block.crcs_match) {
            measure_decoded(block, look, quality);
            return block;
        }
    }
    return {};
}

bool check_args(const soundcomm_context_t* ctx, const double* input, uint32_t input_len)
{
    if (!check_decode_args(ctx, input, input_len)) {
        return false;
    }
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
    frame_quality_t measured{};
    const decoded_block block = decode_frame(input, paras.second_look, &measured);
    measured.needed = true;
    measured.decoded = block.crcs_match;
    if (quality != nullptr) {
        *quality = measured;
    }
    if (block.crcs_match && output != nullptr && output_len >= paras.cfg.msg_byte_len) {
        const kom_vector_uint8 bytes =
            kom_vector_uint8_const_view_array(block.bytes, paras.frame.bytes, 0, 1, paras.frame.bytes);
        copy_decoded_msg(&paras, &bytes, output, output_len);
    }
    return measured.decoded ? 1 : 0;
}

uint32_t soundcomm_get_equalised_symbols(const soundcomm_context_t* ctx, double* symbols, uint32_t room)
{
    second_look_t* const look = ctx != nullptr ? ctx->rx_paras->second_look : nullptr;
    if (look == nullptr || look->estimate.symbols == 0) {
        return 0;
    }
    const uint32_t count = look->paras->frame.re_num;
    if (symbols != nullptr && room >= count) {
        equalise_frame(look->estimate, &look->channel, symbols);
    }
    return count;
}

frame_quality_t soundcomm_get_frame_quality(const soundcomm_context_t* ctx)
{
    const bool known = ctx != nullptr && ctx->rx_paras->second_look != nullptr;
    return known ? ctx->rx_paras->second_look->quality : frame_quality_t{};
}
