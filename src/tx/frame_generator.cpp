#include "kosc/encoder.h"

#include "kosc/fade.h"
#include "kosc/ofdm.h"
#include "math/vector_family.h"

using namespace kosc;

namespace {

// Writes one data symbol, prefix included, to the `frame` from sample `first` on.
bool put_data_symbol(const soundcomm_cfg_t& cfg, const kom_vector_complex* values, kom_vector* frame, uint32_t first)
{
    const uint32_t symbol_len = cfg.ofdm_cfg.symbol_len;
    const uint32_t cp_len = cfg.ofdm_cfg.cp_len;
    const complex_ptr spectrum{ofdm_map_subcarries(values, symbol_len, cfg.ofdm_cfg.sc_start_idx)};
    const doubles_ptr symbol{ofdm_mod_halfcomplex(spectrum.get())};
    if (!symbol) {
        return false;
    }
    kom_vector_set_by_vector(frame, first + cp_len, 1, symbol.get(), 0, 1, symbol_len);
    kom_vector_set_by_vector(frame, first, 1, symbol.get(), symbol_len - cp_len, 1, cp_len);
    do_fade_in_out(cfg.fade_cfg, frame->data + first, symbol_len + cp_len);
    return true;
}

} // namespace

kom_vector* FrameGenerate(const soundcomm_paras_t* paras, const kom_vector_complex* qpsk)
{
    const soundcomm_cfg_t& cfg = paras->cfg;
    const frame_struct_t& layout = paras->frame;
    if (layout.data_symbols == 0 || kom_vector_complex_size(qpsk) % layout.data_symbols != 0) {
        return nullptr;
    }
    doubles_ptr frame{kom_vector_alloc(layout.frame_length)};
    if (!frame) {
        return nullptr;
    }
    const uint32_t length = cfg.ofdm_cfg.symbol_len + cfg.ofdm_cfg.cp_len;
    const uint32_t sc_num = cfg.ofdm_cfg.sc_num;
    uint32_t pilots = 0;
    uint32_t data = 0;
    for (uint32_t i = 0; i < layout.symbols; ++i) {
        if (is_pilot_index(cfg.pilot_cfg.data_pilot_rate, i)) {
            const pilot_t& pilot = pilots == 0 ? paras->sync_pilot : paras->estimating_pilot;
            if (kom_vector_set_by_vector(frame.get(), i * length, 1, pilot.samples, 0, 1, length) == 0) {
                return nullptr;
            }
            ++pilots;
            continue;
        }
        // A layout with fewer pilot positions than pilot symbols asks for more data than there is.
        const kom_vector_complex values = kom_vector_complex_const_subvector(qpsk, data * sc_num, 1, sc_num);
        if (values.data == nullptr || !put_data_symbol(cfg, &values, frame.get(), i * length)) {
            return nullptr;
        }
        ++data;
    }
    return frame.release();
}
