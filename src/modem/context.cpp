#include "kosc/context.h"

#include <algorithm>

#include "coding/block_code_tables.h"
#include "config/config_dump.h"
#include "dsp/fade_window.h"
#include "dsp/phase_angles.h"
#include "dsp/pruned_ifft.h"
#include "log/log_macros.h"
#include "modem/pilot.h"
#include "platform/owned.h"
#include "receive/combined_frames.h"
#include "receive/crowd_area.h"
#include "receive/receive_tracks.h"
#include "second_look/second_look_area.h"

using namespace kosc;

namespace {

// Samples of the longest frame, a minute and a half: what a longer one needs would only be overcommitted.
constexpr uint32_t MAX_FRAME_LENGTH = uint32_t{1} << 22;

void release_paras(soundcomm_paras_t* paras)
{
    if (paras == nullptr) {
        return;
    }
    clear_pilot(&paras->sync_pilot);
    clear_pilot(&paras->estimating_pilot);
    conv_code_release(paras->conv_code);
    free_punch_template(paras->punch_template);
    free_phase_pattern(paras->phase_pattern);
    release_receive_tracks(paras);
    std::free(paras->fade_window);
    pruned_ifft_free(paras->inverse);
    free_second_look(paras->second_look);
    end_combining(paras);
    free_crowd(paras->crowd);
    std::free(paras);
}

using paras_ptr = owned<soundcomm_paras_t, release_paras>;
using context_ptr = owned<soundcomm_context_t, soundcomm_release>;

bool check_cfg(const soundcomm_cfg_t& cfg)
{
    KOSC_RETURN_IF(!cfg_zero_length_check(cfg), false, "some length in cfg is ZERO");
    KOSC_RETURN_IF(cfg.msg_byte_len % cfg.crc_cfg.group != 0, false, "msg byte len %u is not divisible by groups %u",
                   cfg.msg_byte_len, cfg.crc_cfg.group);
    KOSC_RETURN_IF(cfg.ofdm_cfg.cp_len <= cfg.fade_cfg.len, false, "fade in and out length %u is too long",
                   cfg.fade_cfg.len);
    return true;
}

// A pattern of the first `sc_num` angles of the long table, or null; false when there is no memory for the angles.
bool make_long_pattern(uint32_t sc_num, phase_pattern** pattern)
{
    if (sc_num > LONG_PATTERN_LEN) {
        return true;
    }
    const block_ptr<double> angles{alloc_zeroed<double>(sc_num)};
    if (!angles) {
        return false;
    }
    std::copy_n(LONG_PATTERN, sc_num, angles.get());
    angle_to_radian(angles.get(), angles.get(), sc_num);
    *pattern = calc_phase_pattern(angles.get(), sc_num);
    return true;
}

bool init_papr(soundcomm_paras_t* paras)
{
    switch (paras->cfg.ofdm_cfg.papr) {
    case KOSC_PAPR_NONE:
    case KOSC_PAPR_DFT_SPREAD:
        return true;
    case KOSC_PAPR_SHORT_PATTERN:
        paras->phase_pattern = calc_phase_pattern(SHORT_PATTERN, SHORT_PATTERN_LEN);
        break;
    case KOSC_PAPR_LONG_PATTERN:
        if (!make_long_pattern(paras->cfg.ofdm_cfg.sc_num, &paras->phase_pattern)) {
            return false;
        }
        break;
    default:
        return false;
    }
    KOSC_RETURN_IF(paras->phase_pattern == nullptr, false, "Fail to Init PAPR reduction context.");
    return true;
}

bool init_channel_code(soundcomm_paras_t* paras)
{
    const channel_code_cfg& cfg = paras->cfg.channel_code_cfg;
    if (cfg.type == KOSC_CODE_LINEAR) {
        const linear_code_cfg& linear = cfg.paras.linear;
        KOSC_RETURN_IF(linear.n != CODE_N || linear.k != CODE_K, false, "Unsupported linear code paras n,k=%u,%u",
                       linear.n, linear.k);
        return true;
    }
    const conv_code_cfg& conv = cfg.paras.conv;
    paras->conv_code = conv_code_init(conv.constraint, conv.polynomials, conv.polynomial_num);
    KOSC_RETURN_IF(paras->conv_code == nullptr, false, "Fail to init convolutional code.");
    const uint32_t coded_len = conv_code_encode_length(paras->conv_code, paras->frame.bits);
    const uint32_t kept_len = paras->frame.bits * conv_code_rate(paras->conv_code);
    KOSC_LOG_DEBUG("Init punch code %d %d", coded_len, kept_len);
    paras->punch_template = get_punch_template(coded_len, kept_len);
    KOSC_RETURN_IF(paras->punch_template == nullptr, false, "Fail to init punch code.");
    return true;
}

soundcomm_paras_t* make_paras(const soundcomm_cfg_t* cfg)
{
    if (cfg == nullptr || !check_cfg(*cfg)) {
        return nullptr;
    }
    paras_ptr paras{alloc_record<soundcomm_paras_t>()};
    KOSC_RETURN_IF(!paras, nullptr, "No enough memory to init.");
    bounded_copy(&paras->cfg, sizeof(paras->cfg), cfg, sizeof(*cfg));
    dump_cfg(paras->cfg);
    KOSC_RETURN_IF(!init_frame_struct(&paras->cfg, &paras->frame) || paras->frame.frame_length > MAX_FRAME_LENGTH,
                   nullptr, "Init frame struct failed");
    if (!init_papr(paras.get()) || !init_channel_code(paras.get())) {
        return nullptr;
    }
    KOSC_RETURN_IF(!init_pilots(paras.get()), nullptr, "Init pilot failed");
    // Without these two every symbol makes its own window and a whole transform: slower, not wrong.
    const ofdm_cfg& ofdm = cfg->ofdm_cfg;
    paras->fade_window = make_kept_fade_window(cfg->fade_cfg);
    paras->inverse = pruned_ifft_init(ofdm.symbol_len, ofdm.sc_start_idx, ofdm.sc_num);
    dump_frame_struct(paras->frame);
    return paras.release();
}

} // namespace

soundcomm_context_t* soundcomm_init(const soundcomm_cfg_t* tx_cfg, const soundcomm_cfg_t* rx_cfg)
{
    context_ptr ctx{alloc_record<soundcomm_context_t>()};
    KOSC_RETURN_IF(!ctx, nullptr, "No enough memory to init.");
    ctx->tx_paras = make_paras(tx_cfg);
    KOSC_RETURN_IF(ctx->tx_paras == nullptr, nullptr, "Fail to init tx paras.");
    ctx->rx_paras = make_paras(rx_cfg);
    KOSC_RETURN_IF(ctx->rx_paras == nullptr, nullptr, "Fail to init rx paras.");
    return ctx.release();
}

void soundcomm_release(soundcomm_context_t* ctx)
{
    if (ctx != nullptr) {
        release_paras(ctx->tx_paras);
        release_paras(ctx->rx_paras);
        std::free(ctx);
    }
}

soundcomm_paras_t* soundcomm_get_paras(const soundcomm_context_t* ctx, int which)
{
    switch (which) {
    case 0:
        return ctx->tx_paras;
    case 1:
        return ctx->rx_paras;
    default:
        return nullptr;
    }
}

uint32_t soundcomm_get_frame_length(const soundcomm_paras_t* paras) { return paras->frame.frame_length; }

data_container* soundcomm_get_datacontainer(const soundcomm_paras_t* paras, int track)
{
    return paras->track[track].container;
}
