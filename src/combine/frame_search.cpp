#include "combine/frame_search.h"

#include <algorithm>
#include <cmath>

#include "config/frame_symbols.h"
#include "math/complex_ops.h"
#include "math/constants.h"

namespace kosc {
namespace {

constexpr uint32_t NEARBY = 8; // halves of a baseband sample: 0.67 ms, or 23 cm of sound

// Spectrum of a pilot's window at baseband: what is sent within the FFT's window, which begins `early` baseband samples
// before the end of the prefix.
void make_pilot(const float_fft& fft, const double* sent, double early, float_points* pilot)
{
    float_points spare;
    *pilot = {};
    double energy = 0.0;
    for (uint32_t i = 0; i < SEARCH_PILOT_LEN; ++i) {
        double re = 0.0;
        double im = 0.0;
        for (uint32_t k = 0; k < WEAK_SC_NUM; ++k) {
            const double angle = 2 * PI * (k - WEAK_SC_NUM / 2.0) * (i - early) / SEARCH_PILOT_LEN;
            const kom_complex value = load(sent, k) * kom_complex{std::cos(angle), std::sin(angle)};
            re += value.re;
            im += value.im;
        }
        pilot->re[i] = static_cast<float>(re);
        pilot->im[i] = static_cast<float>(im);
        energy += re * re + im * im;
    }
    const auto scale = static_cast<float>(1 / std::sqrt(energy));
    for (uint32_t i = 0; i < SEARCH_PILOT_LEN; ++i) {
        pilot->re[i] *= scale;
        pilot->im[i] *= scale;
    }
    transform(fft, pilot, &spare);
}

// Spectra of the segment's blocks, and one over the energy of each position's window.
void prepare(const microphone& input, uint64_t first, uint32_t e, frame_search* search)
{
    auto& work = search->scratch->input[e];
    const uint32_t mask = input.raw_len / DECIMATION - 1;
    float_points spare;
    for (uint32_t b = 0; b < SEARCH_BLOCKS; ++b) {
        float_points* const block = &work.spectrum[b];
        for (uint32_t i = 0; i < FLOAT_FFT_LEN; ++i) {
            const uint32_t at = (first + uint64_t{b} * SEARCH_BLOCK + i) & mask;
            block->re[i] = input.re[at];
            block->im[i] = input.im[at];
        }
        transform(search->fft, block, &spare);
    }
    const auto power_at = [&](uint64_t n) {
        const double re = input.re[n & mask];
        const double im = input.im[n & mask];
        return re * re + im * im;
    };
    constexpr double LEAST = 1e-6; // of digital silence, at the scale of 16-bit samples
    double energy = 0.0;
    for (uint32_t i = 0; i < SEARCH_PILOT_LEN; ++i) {
        energy += power_at(first + i);
    }
    for (uint32_t i = 0; i < SEARCH_SPAN; ++i) {
        constexpr double SCALE = double{FLOAT_FFT_LEN} * FLOAT_FFT_LEN; // of a transform there and back, squared
        work.inverse_energy[i] = static_cast<float>(1 / (SCALE * std::max(energy, LEAST)));
        energy = std::max(energy + power_at(first + i + SEARCH_PILOT_LEN) - power_at(first + i), 0.0);
    }
}

// Normalised energies of the correlation with a pilot, its spectrum shifted by `bins`: out[2*i] at position i, out[2*i
// + 1] half a position later. Between two positions the sum of the neighbours is taken. For a band of half the sampling
// rate each of them has sinc(1/4) of the peak's amplitude, so that the sum's power is (2*sinc(1/4))^2 of it.
void correlate(const frame_search& search, uint32_t e, uint32_t blocks, const float_points& pilot, int bins, float* out)
{
    const auto& work = search.scratch->input[e];
    constexpr float BETWEEN = 1 / 3.2423F;
    float_points c;
    float_points spare;
    for (uint32_t b = 0; b < blocks; ++b) {
        const float_points& s = work.spectrum[b];
        for (uint32_t k = 0; k < FLOAT_FFT_LEN; ++k) {
            const uint32_t p = (k - static_cast<uint32_t>(bins)) & (FLOAT_FFT_LEN - 1);
            c.re[k] = s.re[k] * pilot.re[p] + s.im[k] * pilot.im[p];
            c.im[k] = s.im[k] * pilot.re[p] - s.re[k] * pilot.im[p];
        }
        transform_back(search.fft, &c, &spare);
        const float* const inverse = work.inverse_energy + size_t{b} * SEARCH_BLOCK;
        float* const row = out + size_t{2} * b * SEARCH_BLOCK;
        for (uint32_t i = 0; i < SEARCH_BLOCK; ++i) {
            const float re = c.re[i] + c.re[i + 1];
            const float im = c.im[i] + c.im[i + 1];
            row[2 * i] = (c.re[i] * c.re[i] + c.im[i] * c.im[i]) * inverse[i];
            row[2 * i + 1] = (re * re + im * im) * BETWEEN * inverse[i];
        }
    }
}

// Places of the later pilots under a drift, in halves of a baseband sample behind the first.
uint32_t halves_between(const frame_search& search, uint32_t pilot, double rate)
{
    return static_cast<uint32_t>(std::lround(2 * (search.window[pilot] - search.window[0]) * (1 - rate)));
}

void sum_pilots(uint32_t e, int bins, double rate, frame_search* search)
{
    search_scratch& scratch = *search->scratch;
    constexpr uint32_t FIRST_BLOCKS = (SEARCH_POSITIONS / 2 + SEARCH_BLOCK - 1) / SEARCH_BLOCK;
    correlate(*search, e, FIRST_BLOCKS, search->pilot[0], bins, scratch.first_pilot);
    correlate(*search, e, SEARCH_BLOCKS, search->pilot[1], bins, scratch.later_pilots);
    const float* const second = scratch.later_pilots + halves_between(*search, 1, rate);
    const float* const third = scratch.later_pilots + halves_between(*search, 2, rate);
    for (uint32_t i = 0; i < SEARCH_POSITIONS; ++i) {
        scratch.input[e].sum[i] = scratch.first_pilot[i] + second[i] + third[i];
    }
}

// nearby[i] = the highest of sum[i] to sum[i + 2 * NEARBY], by maxima over twice as many places each time.
void find_nearby(search_scratch* scratch)
{
    static_assert((NEARBY & (NEARBY - 1)) == 0, "doubling ends at twice NEARBY places");
    float* const highest = scratch->nearby;
    const auto widen_by = [&](uint32_t places) {
        for (uint32_t i = 0; i < SEARCH_POSITIONS - places; ++i) {
            highest[i] = std::max(highest[i], highest[i + places]);
        }
    };
    std::copy_n(scratch->input[1].sum, SEARCH_POSITIONS, highest);
    for (uint32_t places = 1; places <= NEARBY; places *= 2) {
        widen_by(places);
    }
    widen_by(1);
}

void keep_best(uint32_t input_num, int8_t hypothesis, search_scratch* scratch)
{
    constexpr uint32_t BEGIN = 2 * SEARCH_AROUND;
    for (uint32_t i = 0; i < 2 * SEGMENT_LEN; ++i) {
        const float other = input_num == 2 ? scratch->nearby[BEGIN + i - NEARBY] : 0.0F;
        const float score = scratch->input[0].sum[BEGIN + i] + other;
        if (score > scratch->best[i]) {
            scratch->best[i] = score;
            scratch->best_rate[i] = hypothesis;
        }
    }
}

} // namespace

void init_frame_search(const soundcomm_paras_t& paras, frame_search* search)
{
    init_float_fft(&search->fft);
    const ofdm_cfg& ofdm = paras.cfg.ofdm_cfg;
    const double early = static_cast<double>(paras.cfg.fade_cfg.len) / DECIMATION;
    make_pilot(search->fft, paras.sync_pilot.sequence->data, early, &search->pilot[0]);
    make_pilot(search->fft, paras.estimating_pilot.sequence->data, early, &search->pilot[1]);
    for (uint32_t i = 0; i < paras.frame.symbols; ++i) {
        const frame_symbol place = frame_symbol_at(paras, i);
        if (place.is_pilot) {
            search->window[place.number] =
                (i * (ofdm.symbol_len + ofdm.cp_len) + ofdm.cp_len - paras.cfg.fade_cfg.len) / DECIMATION;
        }
    }
    const double middle = (ofdm.sc_start_idx + WEAK_SC_NUM / 2.0) * WEAK_SAMPLE_RATE / WEAK_SYMBOL_LEN;
    search->bins_per_rate = middle / (BASEBAND_RATE / FLOAT_FFT_LEN);
}

candidate search_segment(const microphone* const* inputs, uint32_t input_num, uint64_t first, frame_search* search)
{
    search_scratch& scratch = *search->scratch;
    const uint64_t position = first - SEARCH_AROUND + search->window[0];
    for (uint32_t e = 0; e < input_num; ++e) {
        prepare(*inputs[e], position, e, search);
    }
    std::fill_n(scratch.best, 2 * SEGMENT_LEN, -1.0F);
    for (int h = -SEARCH_RATE_REACH; h <= SEARCH_RATE_REACH; ++h) {
        const double rate = h * SEARCH_RATE_STEP;
        const int bins = static_cast<int>(std::lround(rate * search->bins_per_rate));
        for (uint32_t e = 0; e < input_num; ++e) {
            sum_pilots(e, bins, rate, search);
        }
        if (input_num == 2) {
            find_nearby(&scratch);
        }
        keep_best(input_num, static_cast<int8_t>(h), &scratch);
    }
    const float* const top = std::max_element(scratch.best, scratch.best + 2 * SEGMENT_LEN);
    const auto at = static_cast<uint32_t>(top - scratch.best);
    candidate found{*top, {}, scratch.best_rate[at] * SEARCH_RATE_STEP};
    const auto sample_of = [&](uint32_t half) {
        return static_cast<double>(first - SEARCH_AROUND) * DECIMATION + half * (DECIMATION / 2.0);
    };
    const uint32_t half = at + 2 * SEARCH_AROUND;
    found.start[0] = sample_of(half);
    if (input_num == 2) { // where the second input heard it under that hypothesis
        sum_pilots(1, static_cast<int>(std::lround(found.rate * search->bins_per_rate)), found.rate, search);
        const float* const sum = scratch.input[1].sum;
        const float* const highest = std::max_element(sum + half - NEARBY, sum + half + NEARBY + 1);
        found.start[1] = sample_of(static_cast<uint32_t>(highest - sum));
    }
    return found;
}

} // namespace kosc
