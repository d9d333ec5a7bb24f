#include "modem/pilot.h"

#include "kosc/fade.h"
#include "kosc/ofdm.h"
#include "kosc/zadoff_chu.h"
#include "log/log_macros.h"
#include "math/vector_family.h"

using namespace kosc;

namespace {

constexpr int32_t SYNC_ROOT = 1;
constexpr int32_t ESTIMATING_ROOT = 3;

// The subcarrier values of a pilot; null when memory is short.
kom_vector_complex* make_sequence(const ofdm_cfg& ofdm, int32_t root)
{
    kom_vector_complex* const sequence = ofdm.sc_num <= INT32_MAX ? kom_vector_complex_alloc(ofdm.sc_num) : nullptr;
    if (sequence != nullptr) {
        zc(root, 0, static_cast<int32_t>(ofdm.sc_num), sequence->data);
    }
    return sequence;
}

// The symbol behind its cyclic prefix, faded; null with a message.
kom_vector* make_samples(const soundcomm_cfg_t& cfg, const kom_vector_complex* sequence)
{
    const uint32_t symbol_len = cfg.ofdm_cfg.symbol_len;
    const uint32_t cp_len = cfg.ofdm_cfg.cp_len;
    const complex_ptr spectrum{ofdm_map_subcarries(sequence, symbol_len, cfg.ofdm_cfg.sc_start_idx)};
    KOSC_RETURN_IF(!spectrum, nullptr, "pilot map subcarries faild.");
    const doubles_ptr symbol{ofdm_mod_halfcomplex(spectrum.get())};
    KOSC_RETURN_IF(!symbol, nullptr, "pilot mod ofdm symbol faild.");
    doubles_ptr samples{cp_len <= symbol_len ? kom_vector_alloc(cp_len + symbol_len) : nullptr};
    KOSC_RETURN_IF(!samples, nullptr, "init pilot with cp faild.");
    kom_vector_set_by_vector(samples.get(), cp_len, 1, symbol.get(), 0, 1, symbol_len);
    kom_vector_set_by_vector(samples.get(), 0, 1, symbol.get(), symbol_len - cp_len, 1, cp_len);
    do_fade_in_out(cfg.fade_cfg, samples->data, samples->size);
    return samples.release();
}

bool build_pilot(const soundcomm_cfg_t& cfg, int32_t root, pilot_t* pilot)
{
    complex_ptr sequence{make_sequence(cfg.ofdm_cfg, root)};
    if (!sequence) {
        return false;
    }
    pilot->samples = make_samples(cfg, sequence.get());
    if (pilot->samples == nullptr) {
        return false;
    }
    pilot->sequence = sequence.release();
    const uint32_t early = cfg.fade_cfg.enable != 0 ? cfg.fade_cfg.len : 0;
    pilot->reference = pilot->samples->data + (cfg.ofdm_cfg.cp_len - early);
    return true;
}

} // namespace

namespace kosc {

bool init_pilots(soundcomm_paras_t* paras)
{
    KOSC_RETURN_IF(!build_pilot(paras->cfg, SYNC_ROOT, &paras->sync_pilot), false, "init sync pilot failed.");
    KOSC_LOG_DEBUG("init sync pilot succeed.");
    if (paras->frame.pilot_symbols > 1) {
        KOSC_RETURN_IF(!build_pilot(paras->cfg, ESTIMATING_ROOT, &paras->estimating_pilot), false,
                       "init estimating pilot failed.");
        KOSC_LOG_DEBUG("init estimating pilot succeed.");
    }
    return true;
}

void clear_pilot(pilot_t* pilot)
{
    kom_vector_complex_free(pilot->sequence);
    kom_vector_free(pilot->samples);
    *pilot = {};
}

} // namespace kosc
