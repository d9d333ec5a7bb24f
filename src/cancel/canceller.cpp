#include "cancel/canceller.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "cancel/impulse_response.h"
#include "cancel/lone_frame.h"
#include "cancel/resent_frame.h"
#include "cancel/residual_clock.h"
#include "config/frame_symbols.h"
#include "math/complex_ops.h"
#include "platform/owned.h"

namespace kosc {

struct canceller {
    const soundcomm_paras_t* paras;
    baseband band;
    uint32_t delays[3]; // by reach
    clock_scratch clock;
    response_model model;
    double resent[2 * BLOCK_LEN];
    double phasors[2 * BLOCK_LEN];
    double present[BLOCK_LEN]; // 1 where a received value's samples are there
    double* samples;           // owned; the longest span
};

namespace {

using canceller_ptr = owned<canceller, free_canceller>;

constexpr uint32_t TAIL_SAMPLES = 3000; // delays behind the start that are estimated, 62 ms at 48 kHz
constexpr uint32_t ROOM_SAMPLES = 4320; // that a room's tail takes, 90 ms
constexpr int CLOCK_ROUNDS = 3;         // at most, of making the frame again and refining its clock
constexpr double CLOCK_SETTLED = 0.002; // radians at the frame's ends
constexpr uint32_t STEPS[] = {6, 6, 9}; // of the solver in each round of prior and response
constexpr double LEAST_NOISE = 1e-9;    // power of a baseband value, where samples count to 32768

uint32_t delays_of(const canceller& c, reach far) { return c.delays[static_cast<int>(far)]; }

uint32_t baseband_len(const canceller& c, reach far) { return c.band.frame_len + delays_of(c, far); }

double power_of_difference(const double* a, const double* b, size_t k)
{
    const kom_complex e = load(a, k) - load(b, k);
    return e.re * e.re + e.im * e.im;
}

// Gives the values weights by what the model leaves of the symbol in whose time they lie, in inverse proportion, 1
// those of the quietest data symbol. Unless `pilots`, those of pilots have none: of a frame that begins within the
// response's reach, they would be taken for this one's echo. Returns the noise of a value of weight 1.
double weigh_symbols(uint32_t count, bool pilots, canceller* c)
{
    response_model& m = c->model;
    const uint32_t length = c->band.symbol_len;
    const uint32_t symbols = c->paras->frame.symbols;
    const auto is_pilot = [&](uint32_t i) { return i < symbols && frame_symbol_at(*c->paras, i).is_pilot; };
    double* const noise = c->phasors; // scratch; one value a stretch of a symbol's length
    double least = INFINITY;
    for (uint32_t i = 0; i * length < count; ++i) {
        const uint32_t first = std::min(i * length + LEAD, count - 1);
        const uint32_t end = std::min(first + length, count);
        double sum = 0.0;
        for (uint32_t k = first; k < end; ++k) {
            sum += power_of_difference(m.received, m.modelled, k);
        }
        noise[i] = sum / (end - first);
        if (i < symbols && !is_pilot(i)) {
            least = std::min(least, noise[i]);
        }
    }
    least = std::max(least, LEAST_NOISE);
    for (uint32_t k = 0; k < count; ++k) {
        const uint32_t i = k < LEAD ? 0 : (k - LEAD) / length;
        m.weight[k] = is_pilot(i) && !pilots ? 0.0 : c->present[k] * least / std::max(noise[i], least);
    }
    return least;
}

// Energy of the frame as sent, by the weights of the values that it is received in.
double weighted_energy(const canceller& c)
{
    double energy = 0.0;
    for (uint32_t k = 0; k < c.band.frame_len; ++k) {
        const kom_complex z = load(c.resent, k);
        energy += (z.re * z.re + z.im * z.im) * c.model.weight[k + LEAD];
    }
    return energy;
}

// Makes the frame again on its clock, which is refined where it is not known exactly.
void resend(const cancel_job& job, canceller* c, frame_clock* clock)
{
    *clock = job.clock;
    for (int round = 0; round <= CLOCK_ROUNDS; ++round) {
        resend_frame(*c->paras, c->band, job.sent, *clock, c->resent);
        if (job.clock_known || round == CLOCK_ROUNDS ||
            refine_clock(*c->paras, c->band, c->resent, c->model.received, &c->clock, clock) < CLOCK_SETTLED) {
            return;
        }
    }
}

} // namespace

bool suits_canceller(const soundcomm_paras_t& paras)
{
    baseband band;
    return paras.conv_code != nullptr && paras.cfg.ofdm_cfg.papr != KOSC_PAPR_DFT_SPREAD &&
           paras.frame.symbols <= MAX_SYMBOLS && paras.frame.symbols > paras.frame.pilot_symbols + 2 &&
           init_baseband(paras, &band) && band.symbol_len >= NEAR_DELAYS;
}

canceller* make_canceller(const soundcomm_paras_t& paras)
{
    canceller_ptr c{suits_canceller(paras) ? alloc_record<canceller>() : nullptr};
    if (!c) {
        return nullptr;
    }
    c->paras = &paras;
    init_baseband(paras, &c->band);
    init_block_fft(&c->model.fft);
    const uint32_t room = std::min(BLOCK_LEN - c->band.frame_len, MAX_DELAYS);
    c->delays[0] = LEAD + paras.cfg.ofdm_cfg.cp_len / c->band.decimation;
    c->delays[1] = std::min(room, std::max(c->delays[0], LEAD + TAIL_SAMPLES / c->band.decimation));
    c->delays[2] = std::min(room, std::max(c->delays[0], LEAD + ROOM_SAMPLES / c->band.decimation));
    c->samples = alloc_array<double>(uint64_t{baseband_len(*c, reach::TAIL)} * c->band.decimation);
    return c->samples != nullptr ? c.release() : nullptr;
}

void free_canceller(canceller* c)
{
    if (c != nullptr) {
        std::free(c->samples);
        std::free(c);
    }
}

cancel_span span_of(const canceller& c, reach far)
{
    return {-static_cast<int64_t>(LEAD) * c.band.decimation, baseband_len(c, far) * c.band.decimation};
}

left_over find_company(canceller* c, const cancel_job& job, frame_clock* clock)
{
    if (job.samples.first > 0 || job.samples.end < c->paras->frame.frame_length) {
        return left_over::MORE;
    }
    return find_left_over(*c->paras, job.samples.from_start, job.sent, job.floor, c->model.modelled, clock);
}

bool is_alone(canceller* c, const cancel_job& job)
{
    response_model& m = c->model;
    const uint32_t delays = delays_of(*c, reach::ROOM);
    const uint32_t count = c->band.frame_len + delays;
    std::fill_n(m.received, 2 * BLOCK_LEN, 0.0);
    mix_down(c->band, c->band.brief, job.filtered, count, c->phasors, m.received, c->present);
    resend_frame(*c->paras, c->band, job.sent, job.clock, c->resent);
    std::fill(c->resent + size_t{2} * c->band.frame_len, c->resent + 2 * BLOCK_LEN, 0.0);
    transform_block(m.fft, c->resent, m.spectrum);
    return is_explained(delays, count, c->band.symbol_len, job.floor / 2, c->phasors, c->resent, &m);
}

// In each round the weights and the noise follow from what the response before leaves, the prior from that response and
// its uncertainty, and from these the response anew: expectation maximisation, which impulse_response.h has the parts
// of.
const double* estimate_received(canceller* c, const cancel_job& job, frame_clock* clock)
{
    response_model& m = c->model;
    const uint32_t delays = delays_of(*c, job.far);
    const uint32_t count = c->band.frame_len + delays;
    std::fill_n(m.received, 2 * BLOCK_LEN, 0.0);
    std::fill_n(m.weight, BLOCK_LEN, 0.0);
    mix_down(c->band, c->band.sharp, job.samples, count, c->phasors, m.received, c->present);
    resend(job, c, clock);
    set_frame(c->resent, c->band.frame_len, &m);
    double noise = weigh_symbols(count, false, c);
    for (size_t round = 0; round < std::size(STEPS); ++round) {
        const double energy = weighted_energy(*c);
        if (!(energy > 0.0)) {
            return nullptr;
        }
        match_frame(delays, &m);
        if (round == 0) {
            start_prior(delays, energy, noise, &m);
        } else {
            renew_prior(delays, energy, noise, &m);
        }
        solve_response(delays, noise, STEPS[round], &m);
        // What could be taken for an echo was heard before a tail is estimated, or shows in what the model leaves.
        noise = weigh_symbols(count, job.far == reach::TAIL, c);
    }
    mix_up(c->band, count, c->phasors, m.modelled, c->samples);
    return c->samples;
}

} // namespace kosc
