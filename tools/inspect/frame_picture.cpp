#include "frame_picture.h"

#include <algorithm>
#include <cmath>

#include "channels.h"
#include "frame_band.h"
#include "kosc/kosc.hpp"
#include "power_spectrum.h"

namespace kosc_inspect {
namespace {

using complex = std::complex<double>;
using complexes = kosc_link::complex_signal;
using kosc_link::doubles;

// The mean channel of the pilots, each turned to the first's phase.
complexes pilots_response(const soundcomm_paras_t& paras, const std::vector<double>& samples, uint32_t early)
{
    const ofdm_cfg& ofdm = paras.cfg.ofdm_cfg;
    complexes mean(ofdm.sc_num);
    complexes first;
    for (uint32_t i = 0; i < paras.frame.symbols; ++i) {
        if (!is_pilot_index(paras.cfg.pilot_cfg.data_pilot_rate, i)) {
            continue;
        }
        const pilot_t& pilot = first.empty() ? paras.sync_pilot : paras.estimating_pilot;
        const complexes sent = subcarriers_of(ofdm, pilot.reference);
        const size_t place = size_t{i} * (ofdm.symbol_len + ofdm.cp_len) + ofdm.cp_len - paras.cfg.fade_cfg.len;
        complexes response = subcarriers_of(ofdm, samples.data() + place - early);
        complex turn = 0.0;
        for (uint32_t k = 0; k < ofdm.sc_num; ++k) {
            response[k] *= std::conj(sent[k]) / std::max(std::norm(sent[k]), 1e-30);
            turn += first.empty() ? response[k] * std::conj(response[k]) : response[k] * std::conj(first[k]);
        }
        first = first.empty() ? response : first;
        for (uint32_t k = 0; k < ofdm.sc_num; ++k) {
            mean[k] += response[k] * std::polar(1.0, -std::arg(turn));
        }
    }
    return mean;
}

complexes smoothed(const ofdm_cfg& ofdm, complexes response, double noise_ratio)
{
    const kosc::smoother_ptr smoother{channel_smoother_init(ofdm.sc_num, ofdm.symbol_len, ofdm.cp_len)};
    if (smoother) {
        complexes coefficients(smoother->rank);
        channel_smoother_analyse(smoother.get(), doubles(response), doubles(coefficients));
        channel_smoother_synthesise(smoother.get(), doubles(coefficients), noise_ratio, doubles(response));
    }
    return response;
}

std::vector<double> gains_db(const complexes& response, double mean_power)
{
    constexpr double NO_GAIN_DB = -60.0;
    std::vector<double> gains;
    for (const complex& value : response) {
        gains.push_back(std::max(to_db(std::norm(value) / mean_power), NO_GAIN_DB));
    }
    return gains;
}

} // namespace

frame_picture picture_of(const soundcomm_context_t& context, const frame_report_t& frame)
{
    constexpr uint32_t EARLY = 16; // the smoother takes echoes as late, never as early, so the window begins before
    const soundcomm_paras_t& paras = *context.rx_paras;
    const uint32_t length = paras.frame.frame_length;
    frame_picture picture;
    picture.before.resize(paras.frame.re_num);
    picture.before.resize(
        soundcomm_equalise(&context, frame.samples, length, doubles(picture.before), paras.frame.re_num));
    if (frame.quality.attempts != 0) {
        picture.after.resize(paras.frame.re_num);
        picture.after.resize(soundcomm_get_equalised_symbols(&context, doubles(picture.after),
                                                             static_cast<uint32_t>(picture.after.size())));
    }
    const double middle = -frame.quality.drift_ppm, change = frame.quality.drift_change_ppm / 2;
    const std::vector<double> samples(frame.samples, frame.samples + length);
    const complexes response =
        pilots_response(paras, kosc_link::drift(samples, middle + change, middle - change, 0, samples.size()), EARLY);
    const uint32_t pilots = paras.frame.symbols / (paras.cfg.pilot_cfg.data_pilot_rate + 1);
    const complexes smooth =
        smoothed(paras.cfg.ofdm_cfg, response, frame.quality.evm * frame.quality.evm / std::max(pilots, 1U));
    double mean_power = 1e-30;
    for (const complex& value : smooth) {
        mean_power += std::norm(value) / static_cast<double>(smooth.size());
    }
    picture.measured_db = gains_db(response, mean_power);
    picture.smoothed_db = gains_db(smooth, mean_power);
    return picture;
}

} // namespace kosc_inspect
