#include "frame_picture.h"

#include <algorithm>
#include <cmath>
#include <memory>

#include "channels.h"
#include "kosc/channel_smoother.h"
#include "kosc/encoder.h"
#include "kosc/fft.h"

namespace kosc_inspect {
namespace {

using complex = std::complex<double>;
using spectra = std::vector<std::vector<complex>>; // the subcarriers of each symbol

constexpr double NO_GAIN_DB = -60.0;

// `offset` is where in its prefix a symbol's FFT window begins.
spectra demodulate(const soundcomm_paras_t& paras, const std::vector<double>& frame, uint32_t offset)
{
    const ofdm_cfg& ofdm = paras.cfg.ofdm_cfg;
    spectra symbols;
    for (uint32_t i = 0; i < paras.frame.symbols; ++i) {
        const size_t start = size_t{i} * (ofdm.symbol_len + ofdm.cp_len) + offset;
        std::vector<double> work(2 * size_t{ofdm.symbol_len});
        for (size_t n = 0; n < ofdm.symbol_len && start + n < frame.size(); ++n) {
            work[2 * n] = frame[start + n];
        }
        kom_fft_complex_radix2_forward(work.data(), 1, ofdm.symbol_len);
        std::vector<complex> values;
        for (uint32_t k = ofdm.sc_start_idx; k < ofdm.sc_start_idx + ofdm.sc_num; ++k) {
            values.emplace_back(work[2 * k], work[2 * k + 1]);
        }
        symbols.push_back(values);
    }
    return symbols;
}

bool is_pilot(const soundcomm_paras_t& paras, uint32_t i)
{
    return is_pilot_index(paras.cfg.pilot_cfg.data_pilot_rate, i);
}

// Turns back the phase pattern, and the slope that FFT windows have which begin inside the prefix.
std::vector<complex> restored(const soundcomm_paras_t& paras, std::vector<complex> values)
{
    const ofdm_cfg& ofdm = paras.cfg.ofdm_cfg;
    for (size_t i = 0; i < values.size(); ++i) {
        const auto bin = static_cast<double>(ofdm.sc_start_idx + i % ofdm.sc_num);
        values[i] *= std::polar(1.0, 2 * kosc_link::PI * bin * paras.cfg.fade_cfg.len / ofdm.symbol_len);
    }
    if (paras.phase_pattern != nullptr) {
        phase_restore(reinterpret_cast<double*>(values.data()), static_cast<uint32_t>(values.size()),
                      paras.phase_pattern); // complex numbers are pairs of doubles by the language's own rule
    }
    return values;
}

// What was sent: the whole frame where it is known, else its pilots (data symbols stay empty).
spectra sent_symbols(const soundcomm_paras_t& paras, const candidate& frame, uint32_t offset)
{
    std::vector<uint8_t> message = frame.message;
    message.resize(paras.cfg.msg_byte_len);
    std::vector<double> sound(paras.frame.frame_length);
    soundcomm_encode(&paras, message.data(), paras.cfg.msg_byte_len, sound.data(), paras.frame.frame_length);
    spectra sent = demodulate(paras, sound, offset);
    for (uint32_t i = 0; i < sent.size() && !frame.decoded; ++i) {
        if (!is_pilot(paras, i)) {
            sent[i].clear();
        }
    }
    return sent;
}

// Channel of one symbol: received over sent; empty where nothing is known.
std::vector<complex> response_of(const std::vector<complex>& received, const std::vector<complex>& sent)
{
    std::vector<complex> response;
    for (size_t k = 0; k < sent.size(); ++k) {
        response.push_back(received[k] * std::conj(sent[k]) / std::max(std::norm(sent[k]), 1e-30));
    }
    return response;
}

double turn_between(const std::vector<complex>& response, const std::vector<complex>& reference)
{
    complex sum = 0.0;
    for (size_t k = 0; k < response.size(); ++k) {
        sum += response[k] * std::conj(reference[k]);
    }
    return response.empty() ? 0.0 : std::arg(sum);
}

std::vector<complex> smoothed(const soundcomm_paras_t& paras, const std::vector<complex>& response, double noise_ratio)
{
    const ofdm_cfg& ofdm = paras.cfg.ofdm_cfg;
    const std::unique_ptr<channel_smoother_t, decltype(&channel_smoother_free)> smoother{
        channel_smoother_init(ofdm.sc_num, ofdm.symbol_len, ofdm.cp_len), channel_smoother_free};
    if (!smoother) {
        return response;
    }
    std::vector<complex> coefficients(smoother->rank), result(response.size());
    channel_smoother_analyse(smoother.get(), reinterpret_cast<const double*>(response.data()),
                             reinterpret_cast<double*>(coefficients.data()));
    channel_smoother_synthesise(smoother.get(), reinterpret_cast<const double*>(coefficients.data()), noise_ratio,
                                reinterpret_cast<double*>(result.data()));
    return result;
}

std::vector<double> gains_db(const std::vector<complex>& response, double mean_power)
{
    std::vector<double> gains;
    for (const complex& value : response) {
        gains.push_back(std::max(10.0 * std::log10(std::max(std::norm(value) / mean_power, 1e-30)), NO_GAIN_DB));
    }
    return gains;
}

// As soundcomm_decode() does: two data symbols share the pilot between them.
std::vector<complex> equalised_by_nearest_pilot(const soundcomm_paras_t& paras, const spectra& received,
                                                const spectra& sent)
{
    std::vector<complex> values;
    for (uint32_t i = 0; i < received.size(); ++i) {
        if (is_pilot(paras, i)) {
            continue;
        }
        const uint32_t pilot = i + 1 < received.size() && is_pilot(paras, i + 1) ? i + 1 : i - 1;
        const std::vector<complex> response = response_of(received[pilot], sent[pilot]);
        for (size_t k = 0; k < response.size(); ++k) {
            values.push_back(received[i][k] / (response[k] == 0.0 ? complex(1e-30) : response[k]));
        }
    }
    return restored(paras, values);
}

// The mean channel of all symbols of which it is known what was sent, each turned to the first's phase.
std::vector<complex> joint_response(const spectra& received, const spectra& sent, uint32_t reference,
                                    std::vector<double>* turns, uint32_t* count)
{
    const std::vector<complex> first = response_of(received[reference], sent[reference]);
    std::vector<complex> joint(first.size());
    *count = 0;
    for (uint32_t i = 0; i < received.size(); ++i) {
        const std::vector<complex> response = response_of(received[i], sent[i]);
        (*turns)[i] = turn_between(response, first);
        for (size_t k = 0; k < response.size(); ++k) {
            joint[k] += response[k] * std::polar(1.0, -(*turns)[i]);
        }
        *count += response.empty() ? 0 : 1;
    }
    for (complex& value : joint) {
        value /= *count;
    }
    return joint;
}

} // namespace

frame_picture picture_of(const soundcomm_paras_t& paras, const candidate& frame)
{
    frame_picture picture;
    if (frame.samples.empty()) {
        return picture;
    }
    constexpr uint32_t EARLY = 16; // the smoother takes echoes as late, never as early, so windows differ by this
    const uint32_t offset = paras.cfg.ofdm_cfg.cp_len - paras.cfg.fade_cfg.len;
    const spectra sent = sent_symbols(paras, frame, offset);
    picture.before = equalised_by_nearest_pilot(paras, demodulate(paras, frame.samples, offset), sent);

    const double change = frame.quality.drift_change_ppm / 2;
    const spectra received = demodulate(paras,
                                        kosc_link::drift(frame.samples, -frame.quality.drift_ppm + change,
                                                         -frame.quality.drift_ppm - change, 0, frame.samples.size()),
                                        offset - EARLY);
    std::vector<double> turns(received.size());
    uint32_t count = 0;
    const std::vector<complex> joint = joint_response(received, sent, paras.frame.sync_pilot_index, &turns, &count);
    const std::vector<complex> smooth = smoothed(paras, joint, frame.quality.evm * frame.quality.evm / count);
    double mean_power = 0.0;
    for (const complex& value : smooth) {
        mean_power += std::norm(value) / static_cast<double>(smooth.size());
    }
    mean_power = std::max(mean_power, 1e-30);
    std::vector<complex> values;
    for (uint32_t i = 0; i < received.size(); ++i) {
        for (size_t k = 0; k < smooth.size() && !is_pilot(paras, i); ++k) {
            const complex h = smooth[k] * std::polar(1.0, turns[i]);
            values.push_back(received[i][k] * std::conj(h) / std::max(std::norm(h), 1e-3 * mean_power));
        }
    }
    picture.after = restored(paras, values);
    picture.measured_db = gains_db(joint, mean_power);
    picture.smoothed_db = gains_db(smooth, mean_power);
    return picture;
}

} // namespace kosc_inspect
