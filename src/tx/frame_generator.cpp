#include "kosc/encoder.h"

#include "config/frame_symbols.h"
#include "dsp/fade_window.h"
#include "dsp/pruned_ifft.h"
#include "kosc/fade.h"
#include "kosc/ofdm.h"
#include "math/vector_family.h"
#include "tx/frame_generator.h"

using namespace kosc;

namespace {

// The time-domain symbol of `values` by a whole transform; false when that cannot be made.
bool modulate_by_spectrum(const ofdm_cfg& ofdm, const kom_vector_complex* values, double* samples)
{
    const complex_ptr spectrum{ofdm_map_subcarries(values, ofdm.symbol_len, ofdm.sc_start_idx)};
    const doubles_ptr symbol{ofdm_mod_halfcomplex(spectrum.get())};
    const size_t bytes = ofdm.symbol_len * sizeof(double);
    return symbol && bounded_copy(samples, bytes, symbol->data, bytes);
}

// Writes one data symbol behind its prefix to `symbol`, faded; `work` is for the pruned inverse FFT where there is one.
bool put_data_symbol(const soundcomm_paras_t& paras, const kom_vector_complex* values, double* work, double* symbol)
{
    const ofdm_cfg& ofdm = paras.cfg.ofdm_cfg;
    double* const samples = symbol + ofdm.cp_len;
    if (paras.inverse != nullptr) {
        pruned_ifft_run(paras.inverse, values->data, work, samples);
    } else if (!modulate_by_spectrum(ofdm, values, samples)) {
        return false;
    }
    const size_t prefix_bytes = ofdm.cp_len * sizeof(double);
    bounded_copy(symbol, prefix_bytes, samples + (ofdm.symbol_len - ofdm.cp_len), prefix_bytes);
    if (paras.fade_window != nullptr) {
        apply_fade(paras.fade_window, paras.cfg.fade_cfg.len, symbol, ofdm.symbol_len + ofdm.cp_len);
    } else {
        do_fade_in_out(paras.cfg.fade_cfg, symbol, ofdm.symbol_len + ofdm.cp_len);
    }
    return true;
}

} // namespace

bool kosc::generate_frame(const soundcomm_paras_t& paras, const kom_vector_complex* qpsk, double* frame)
{
    const soundcomm_cfg_t& cfg = paras.cfg;
    const frame_struct_t& layout = paras.frame;
    if (layout.data_symbols == 0 || kom_vector_complex_size(qpsk) % layout.data_symbols != 0) {
        return false;
    }
    const block_ptr<double> work{paras.inverse != nullptr ? alloc_array<double>(pruned_ifft_work(paras.inverse))
                                                          : nullptr};
    if (paras.inverse != nullptr && !work) {
        return false;
    }
    const uint32_t length = cfg.ofdm_cfg.symbol_len + cfg.ofdm_cfg.cp_len;
    const uint32_t sc_num = cfg.ofdm_cfg.sc_num;
    for (uint32_t i = 0; i < layout.symbols; ++i) {
        double* const symbol = frame + size_t{i} * length;
        const frame_symbol place = frame_symbol_at(paras, i);
        if (place.is_pilot) {
            const pilot_t& pilot = pilot_at(paras, place.number);
            if (pilot.samples == nullptr) {
                return false;
            }
            bounded_copy(symbol, length * sizeof(double), pilot.samples->data, length * sizeof(double));
            continue;
        }
        // A layout with fewer pilot positions than pilot symbols asks for more data than there is.
        const kom_vector_complex values = kom_vector_complex_const_subvector(qpsk, place.number * sc_num, 1, sc_num);
        if (values.data == nullptr || !put_data_symbol(paras, &values, work.get(), symbol)) {
            return false;
        }
    }
    return true;
}

kom_vector* FrameGenerate(const soundcomm_paras_t* paras, const kom_vector_complex* qpsk)
{
    doubles_ptr frame{kom_vector_alloc(paras->frame.frame_length)};
    return frame && generate_frame(*paras, qpsk, frame->data) ? frame.release() : nullptr;
}
