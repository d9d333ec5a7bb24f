#include "frame_traits.h"

#include <algorithm>
#include <cmath>

#include "kosc/fft.h"
#include "spectrum_meter.h"

namespace kosc_inspect {
namespace {

constexpr double PI = 3.141592653589793;
constexpr double FULL_SCALE = 32768.0;

// Mean square of the subcarriers in one symbol, in dB against full scale.
double symbol_level(const ofdm_cfg& ofdm, const double* samples)
{
    std::vector<double> work(2 * size_t{ofdm.symbol_len});
    for (uint32_t i = 0; i < ofdm.symbol_len; ++i) {
        work[2 * i] = samples[i] * (0.5 - 0.5 * std::cos(2 * PI * (i + 0.5) / ofdm.symbol_len));
    }
    kom_fft_complex_radix2_forward(work.data(), 1, ofdm.symbol_len);
    double power = 0.0;
    for (uint32_t k = ofdm.sc_start_idx; k < ofdm.sc_start_idx + ofdm.sc_num; ++k) {
        power += work[2 * k] * work[2 * k] + work[2 * k + 1] * work[2 * k + 1];
    }
    const double window_energy = 0.375 * ofdm.symbol_len;
    return to_db(2.0 * power / (window_energy * ofdm.symbol_len) / (FULL_SCALE * FULL_SCALE));
}

// A cut makes nearly all of the difference within two symbols, one of them half cut; what fades away takes longer.
void judge_levels(frame_traits* traits)
{
    constexpr double MISSING = 8.0, NEARLY_ALL = 0.6;
    constexpr size_t ABRUPT = 2;
    const std::vector<double>& levels = traits->symbol_levels;
    double step = 0.0;
    for (size_t i = 0; i + ABRUPT < levels.size(); ++i) {
        step = std::max(step, std::fabs(levels[i] - levels[i + ABRUPT]));
    }
    const auto [least, most] = std::minmax_element(levels.begin(), levels.end());
    traits->cut = step > MISSING && step > NEARLY_ALL * (*most - *least);
    const size_t third = levels.size() / 3;
    double first = 0.0, last = 0.0;
    for (size_t i = 0; i < third; ++i) {
        first += levels[i] / static_cast<double>(third);
        last += levels[levels.size() - 1 - i] / static_cast<double>(third);
    }
    constexpr double SUPPRESSED = 7.0;
    traits->fading_away = !traits->cut && first - last > SUPPRESSED;
}

// Correlates the frame's band with itself.
void find_echo(const soundcomm_paras_t& paras, const double* samples, frame_traits* traits)
{
    constexpr uint32_t SIZE = 16384; // a frame, and longer delays than rooms have
    constexpr uint32_t NEAREST = 40; // closer echoes only tilt the band
    const ofdm_cfg& ofdm = paras.cfg.ofdm_cfg;
    const uint32_t length = std::min(paras.frame.frame_length, SIZE);
    std::vector<double> work(2 * size_t{SIZE});
    for (uint32_t i = 0; i < length; ++i) {
        work[2 * i] = samples[i];
    }
    kom_fft_complex_radix2_forward(work.data(), 1, SIZE);
    const double scale = static_cast<double>(SIZE) / ofdm.symbol_len;
    for (uint32_t k = 0; k < SIZE; ++k) {
        const double inside = (k / scale - ofdm.sc_start_idx + 0.5) / ofdm.sc_num;
        const double taper = inside > 0.0 && inside < 1.0 ? 0.5 - 0.5 * std::cos(2 * PI * inside) : 0.0;
        work[2 * k] = taper * (work[2 * k] * work[2 * k] + work[2 * k + 1] * work[2 * k + 1]);
        work[2 * k + 1] = 0.0;
    }
    kom_fft_complex_radix2_inverse(work.data(), 1, SIZE);
    const auto likeness = [&](uint32_t lag) { return std::hypot(work[2 * lag], work[2 * lag + 1]) / work[0]; };
    const auto close_to = [](uint32_t lag, uint32_t other) { return lag + NEAREST > other && lag < other + NEAREST; };
    // Prefixes repeat their symbols' ends, and the later pilots each other.
    const uint32_t pilots_apart = (paras.cfg.pilot_cfg.data_pilot_rate + 1) * (ofdm.symbol_len + ofdm.cp_len);
    for (uint32_t lag = NEAREST; work[0] > 0.0 && lag < SIZE - length; ++lag) {
        if (!close_to(lag, ofdm.symbol_len) && !close_to(lag, pilots_apart) && likeness(lag) > traits->echo) {
            traits->echo = likeness(lag);
            traits->echo_delay = lag;
        }
    }
}

} // namespace

frame_traits traits_of(const soundcomm_paras_t& paras, const double* samples)
{
    frame_traits traits;
    const ofdm_cfg& ofdm = paras.cfg.ofdm_cfg;
    double power = 0.0;
    for (uint32_t i = 0; i < paras.frame.symbols; ++i) {
        const double* const symbol = samples + size_t{i} * (ofdm.symbol_len + ofdm.cp_len) + ofdm.cp_len;
        traits.symbol_levels.push_back(symbol_level(ofdm, symbol));
        power += std::pow(10.0, traits.symbol_levels.back() / 10.0) / paras.frame.symbols;
    }
    traits.level_db = to_db(power);
    judge_levels(&traits);
    find_echo(paras, samples, &traits);
    return traits;
}

} // namespace kosc_inspect
