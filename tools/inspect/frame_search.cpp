#include "frame_search.h"

#include <algorithm>

#include "frame_band.h"

namespace kosc_inspect {
namespace {

// Of every sample: how alike what follows is to a later pilot, and the band's energy before it.
struct pilot_track {
    std::vector<double> alike, energy;

    double best(size_t centre, size_t reach) const
    {
        const size_t begin = centre - std::min(centre, reach), end = std::min(centre + reach + 1, alike.size());
        return begin < end ? *std::max_element(&alike[begin], &alike[end - 1] + 1) : 0.0;
    }
};

pilot_track track_of(const soundcomm_paras_t& paras, const std::vector<double>& samples)
{
    const ofdm_cfg& ofdm = paras.cfg.ofdm_cfg;
    const band_signal pattern = band_of(ofdm, paras.estimating_pilot.reference, ofdm.symbol_len);
    const size_t hop = BAND_SAMPLES - ofdm.symbol_len;
    pilot_track track{{}, {0.0}};
    for (size_t begin = 0; begin < samples.size(); begin += hop) {
        const size_t count = std::min<size_t>(samples.size() - begin, BAND_SAMPLES);
        const band_signal band = band_of(ofdm, &samples[begin], count);
        const std::vector<double> alike = likeness(band, pattern, ofdm.symbol_len);
        for (size_t i = 0; i < std::min(count, hop); ++i) {
            track.alike.push_back(alike[i]);
            track.energy.push_back(track.energy.back() + std::norm(band[i]));
        }
    }
    return track;
}

} // namespace

std::optional<size_t> find_by_later_pilots(const soundcomm_paras_t& paras, const std::vector<double>& samples)
{
    constexpr double CLEAR = 0.55; // noise is so much like a pilot at fewer than one place in 10^8
    constexpr size_t MOVED = 600;  // samples by which pilots may be nearer to each other, or farther away
    const ofdm_cfg& ofdm = paras.cfg.ofdm_cfg;
    const size_t length = paras.frame.frame_length, step = ofdm.symbol_len + ofdm.cp_len;
    std::vector<size_t> places; // of the later pilots within the frame
    for (uint32_t i = paras.frame.sync_pilot_index + 1; i < paras.frame.symbols; ++i) {
        if (is_pilot_index(paras.cfg.pilot_cfg.data_pilot_rate, i)) {
            places.push_back(i * step + ofdm.cp_len - paras.cfg.fade_cfg.len);
        }
    }
    const pilot_track track = track_of(paras, samples);
    double best = 0.0;
    std::optional<size_t> found;
    for (size_t at = 0; at < track.alike.size(); ++at) {
        for (const size_t place : places) {
            if (track.alike[at] < CLEAR || at < place || at - place + length > samples.size()) {
                continue;
            }
            // A pilot alone may be any of them: the sound is where the frame is.
            const size_t start = at - place;
            double score = track.alike[at] + (track.energy[start + length] - track.energy[start]) / track.energy.back();
            for (const size_t other : places) {
                score += other != place ? track.best(start + other, MOVED) : 0.0;
            }
            if (score > best) {
                best = score;
                found = start;
            }
        }
    }
    return found;
}

std::optional<size_t> find_loudest_part(const soundcomm_paras_t& paras, const std::vector<double>& samples)
{
    const size_t length = paras.frame.frame_length;
    if (samples.size() < length) {
        return std::nullopt;
    }
    const std::vector<double> energy = track_of(paras, samples).energy;
    size_t loudest = 0;
    for (size_t start = 0; start + length < energy.size(); ++start) {
        const bool louder = energy[start + length] - energy[start] > energy[loudest + length] - energy[loudest];
        loudest = louder ? start : loudest;
    }
    return loudest;
}

} // namespace kosc_inspect
