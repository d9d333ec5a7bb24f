#include "decode/demodulator.h"

#include "config/frame_symbols.h"
#include "kosc/ofdm.h"
#include "log/log_macros.h"
#include "math/fft_bins.h"
#include "math/vector_family.h"

using namespace kosc;

namespace {

// Two data symbols share one estimate, whatever the pilot rate.
constexpr uint32_t SYMBOLS_PER_ESTIMATE = 2;

// The subcarriers' bins out of the whole spectrum, for symbol lengths that have no shorter way; false with a message.
bool demodulate_by_spectrum(const ofdm_cfg& ofdm, const double* samples, kom_vector_complex* subcarriers)
{
    const kom_vector window = kom_vector_const_view_array(samples, ofdm.symbol_len, 0, 1, ofdm.symbol_len);
    const complex_ptr spectrum{ofdm_demod_real(&window)};
    KOSC_RETURN_IF(!spectrum, false, "Fail to ofdm_demod_real.");
    const kom_vector_complex bins = ofdm_demap_subcarries(spectrum.get(), ofdm.sc_start_idx, ofdm.sc_num);
    KOSC_RETURN_IF(kom_vector_complex_set_by_vector(subcarriers, 0, 1, &bins, 0, 1, ofdm.sc_num) == 0, false,
                   "Fail to alloc subcarrier vector.");
    return true;
}

// Subcarrier values of the symbol whose FFT window starts at `samples`; null with a message.
kom_vector_complex* demodulate_symbol(const ofdm_cfg& ofdm, const double* samples)
{
    complex_ptr subcarriers{kom_vector_complex_alloc(ofdm.sc_num)};
    KOSC_RETURN_IF(!subcarriers, nullptr, "Fail to alloc subcarrier vector.");
    if (!fft_real_bins(samples, ofdm.symbol_len, ofdm.sc_start_idx, ofdm.sc_num, subcarriers->data) &&
        !demodulate_by_spectrum(ofdm, samples, subcarriers.get())) {
        return nullptr;
    }
    return subcarriers.release();
}

} // namespace

namespace kosc {

bool demodulate(const soundcomm_paras_t& paras, const double* frame, decode_content_t* content)
{
    const ofdm_cfg& ofdm = paras.cfg.ofdm_cfg;
    const size_t length = size_t{ofdm.symbol_len} + ofdm.cp_len;
    // The window starts inside the prefix, so that a frame found a little late still lies before its symbols' ends.
    const uint32_t window_start = ofdm.cp_len - paras.cfg.fade_cfg.len;
    for (uint32_t i = 0; i < paras.frame.symbols; ++i) {
        const frame_symbol place = frame_symbol_at(paras, i);
        if (place.number >= (place.is_pilot ? paras.frame.pilot_symbols : paras.frame.data_symbols)) {
            return false;
        }
        kom_vector_complex* const subcarriers = demodulate_symbol(ofdm, frame + i * length + window_start);
        if (subcarriers == nullptr) {
            return false;
        }
        (place.is_pilot ? content->sc_pilot : content->sc_data)[place.number] = subcarriers;
    }
    return true;
}

// Least squares, H(k) = received(k) / sent(k): one pilot's noise is the estimate's. A window that begins d samples
// early turns value k by exp(-j*2*pi*k*d/symbol_len), of pilots and data alike, and that goes with the division by H.
// Source: van de Beek, Edfors, Sandell, Wilson and Borjesson 1995, "On channel estimation in OFDM systems".
bool estimate_channel(const soundcomm_paras_t& paras, decode_content_t* content)
{
    for (uint32_t i = 0; i < paras.frame.pilot_symbols; ++i) {
        if (kom_vector_complex_div_inplace(content->sc_pilot[i], pilot_at(paras, i).sequence) != 0) {
            return false;
        }
    }
    return true;
}

// Zero forcing. Without DFT spreading the signs, which are all that hard decisions take, depend on no |H|.
bool equalise(const soundcomm_paras_t& paras, decode_content_t* content)
{
    for (uint32_t i = 0; i < paras.frame.data_symbols; ++i) {
        const uint32_t estimate = i / SYMBOLS_PER_ESTIMATE;
        if (estimate >= paras.frame.pilot_symbols ||
            kom_vector_complex_div_inplace(content->sc_data[i], content->sc_pilot[estimate]) != 0) {
            return false;
        }
    }
    return true;
}

bool restore_papr(const soundcomm_paras_t& paras, decode_content_t* content)
{
    const int32_t papr = paras.cfg.ofdm_cfg.papr;
    for (uint32_t i = 0; papr != KOSC_PAPR_NONE && i < paras.frame.data_symbols; ++i) {
        double* const values = kom_vector_complex_raw_ptr(content->sc_data[i]);
        const uint32_t count = kom_vector_complex_size(content->sc_data[i]);
        const bool restored = papr == KOSC_PAPR_DFT_SPREAD ? dft_spread_demod(values, count)
                                                           : phase_restore(values, count, paras.phase_pattern);
        if (!restored) {
            return false;
        }
    }
    return papr >= KOSC_PAPR_NONE && papr <= KOSC_PAPR_LONG_PATTERN;
}

} // namespace kosc
