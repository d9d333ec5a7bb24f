#include "cancel/impulse_response.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "math/complex_ops.h"

namespace kosc {
namespace {

constexpr double CONVERGED = 1e-6;  // of the residual's energy
constexpr double LEAST_PRIOR = 0.1; // of what noise alone makes of a tap
// Neighbours on either side that a tap's expected power is smoothed over: a share of its delay, within bounds. A room's
// tail is smooth, and what a single late tap shows is mostly other frames.
constexpr int64_t REACH_SHARE = 4;
constexpr int64_t LEAST_REACH = 4;
constexpr int64_t MOST_REACH = 48;
constexpr double SMALLEST = 1e-30;

double power(kom_complex z) { return z.re * z.re + z.im * z.im; }

// Convolves BLOCK_LEN values with the frame, or correlates them with it, in place.
void convolve(response_model* m, double* data) { filter_block(m->spectrum, false, &m->fft, data); }

void correlate(response_model* m, double* data) { filter_block(m->spectrum, true, &m->fft, data); }

void weigh(const response_model& m, double* data)
{
    for (uint32_t k = 0; k < BLOCK_LEN; ++k) {
        data[2 * k] *= m.weight[k];
        data[2 * k + 1] *= m.weight[k];
    }
}

// out = (P'S'W S P + noise) in, with the frame's convolution S, the weights W and the root of the prior P.
void normal_product(uint32_t delays, const double* in, double noise, response_model* m, double* out)
{
    double* const work = m->modelled;
    std::fill_n(work, 2 * BLOCK_LEN, 0.0);
    for (uint32_t d = 0; d < 2 * delays; ++d) {
        work[d] = in[d] * m->root_prior[d / 2];
    }
    convolve(m, work);
    weigh(*m, work);
    correlate(m, work);
    for (uint32_t d = 0; d < 2 * delays; ++d) {
        out[d] = work[d] * m->root_prior[d / 2] + noise * in[d];
    }
}

double inner_product(const double* a, const double* b, uint32_t count)
{
    double sums[4] = {};
    for (uint32_t i = 0; i < count; ++i) {
        sums[i % 4] += a[i] * b[i];
    }
    return (sums[0] + sums[1]) + (sums[2] + sums[3]);
}

// Powers of the taps, smoothed by triangles, into the first half of `out`; its second half is scratch memory.
void smooth_powers(const double* taps, uint32_t delays, double* out)
{
    double* const powers = out + MAX_DELAYS;
    for (uint32_t d = 0; d < delays; ++d) {
        powers[d] = power(load(taps, d));
    }
    for (int64_t d = 0; d < delays; ++d) {
        const int64_t reach = std::clamp(d / REACH_SHARE, LEAST_REACH, MOST_REACH);
        double sum = 0.0;
        double weights = 0.0;
        for (int64_t at = std::max(d - reach, int64_t{0}); at <= std::min<int64_t>(d + reach, delays - 1); ++at) {
            const auto w = static_cast<double>(reach + 1 - std::llabs(at - d));
            sum += w * powers[at];
            weights += w;
        }
        out[d] = sum / weights;
    }
}

} // namespace

void set_frame(const double* resent, uint32_t frame_len, response_model* m)
{
    std::fill_n(m->modelled, 2 * BLOCK_LEN, 0.0);
    std::copy_n(resent, size_t{2} * frame_len, m->modelled);
    transform_block(m->fft, m->modelled, m->spectrum);
    std::fill_n(m->modelled, 2 * BLOCK_LEN, 0.0);
    std::fill_n(m->response, 2 * MAX_DELAYS, 0.0);
    std::fill_n(m->root_prior, MAX_DELAYS, 0.0);
}

void match_frame(uint32_t delays, response_model* m)
{
    std::copy_n(m->received, 2 * BLOCK_LEN, m->modelled);
    weigh(*m, m->modelled);
    correlate(m, m->modelled);
    std::copy_n(m->modelled, size_t{2} * delays, m->matched);
}

// The matched filter's output S'W y is `energy` * h, with noise of variance noise * energy, as far as the frame does
// not resemble itself at other delays: |S'W y|^2 / energy^2 - noise / energy is a tap's power.
void start_prior(uint32_t delays, double energy, double noise, response_model* m)
{
    const double floor = noise / energy; // of a tap, by noise alone
    smooth_powers(m->matched, delays, m->scaled);
    for (uint32_t d = 0; d < delays; ++d) {
        m->root_prior[d] = std::sqrt(std::max(m->scaled[d] / (energy * energy) - floor, LEAST_PRIOR * floor));
    }
}

// The expectation of a tap's power is its estimate's power and the variance that the estimate leaves: a round of
// expectation maximisation. With the prior's power p and the noise v = noise / energy of one tap's measurement that
// variance is p*v / (p + v). Source: Tipping 2001, "Sparse Bayesian learning and the relevance vector machine".
void renew_prior(uint32_t delays, double energy, double noise, response_model* m)
{
    const double floor = noise / energy;
    smooth_powers(m->response, delays, m->scaled);
    for (uint32_t d = 0; d < delays; ++d) {
        const double before = m->root_prior[d] * m->root_prior[d];
        m->root_prior[d] = std::sqrt(m->scaled[d] + before * floor / std::max(before + floor, SMALLEST));
    }
}

// The most probable h minimises sum of W*|y - S h|^2 / noise + sum of |h|^2 / P^2, under normal noise and taps.
// With h = P*g the most probable g solves (P'S'W S P + noise) g = P'S'W y; by conjugate gradients.
// Source: Hestenes and Stiefel 1952, "Methods of conjugate gradients for solving linear systems".
void solve_response(uint32_t delays, double noise, uint32_t most_steps, response_model* m)
{
    const uint32_t count = 2 * delays;
    double* const g = m->scaled;
    double all = 0.0;
    for (uint32_t i = 0; i < count; ++i) {
        g[i] = m->response[i] / std::max(m->root_prior[i / 2], SMALLEST);
        m->residual[i] = m->matched[i] * m->root_prior[i / 2];
        all += m->residual[i] * m->residual[i];
    }
    normal_product(delays, g, noise, m, m->product);
    for (uint32_t i = 0; i < count; ++i) {
        m->residual[i] -= m->product[i];
    }
    std::copy_n(m->residual, count, m->direction);
    double left = inner_product(m->residual, m->residual, count);
    for (uint32_t step = 0; step < most_steps && left > CONVERGED * all; ++step) {
        normal_product(delays, m->direction, noise, m, m->product);
        const double length = left / inner_product(m->direction, m->product, count);
        for (uint32_t i = 0; i < count; ++i) {
            g[i] += length * m->direction[i];
            m->residual[i] -= length * m->product[i];
        }
        const double next = inner_product(m->residual, m->residual, count);
        for (uint32_t i = 0; i < count; ++i) {
            m->direction[i] = m->residual[i] + next / left * m->direction[i];
        }
        left = next;
    }
    std::fill_n(m->modelled, 2 * BLOCK_LEN, 0.0);
    for (uint32_t i = 0; i < count; ++i) {
        m->response[i] = g[i] * m->root_prior[i / 2];
        m->modelled[i] = m->response[i];
    }
    convolve(m, m->modelled);
}

} // namespace kosc
