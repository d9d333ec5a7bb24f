#include "combine/learnt_channel.h"

#include <algorithm>
#include <cmath>

#include "config/qpsk_constants.h"
#include "kosc/papr.h"
#include "math/constants.h"
#include "math/simd.h"

namespace kosc {
namespace {

constexpr int LEARNING_STEPS = 4;
constexpr double LEAST_POWER = 0.05; // of an echo's, as a share of what it had if all were alike
constexpr double DELAYS_IN_PREFIX = 32;
static_assert(MAX_RANK % (2 * SIMD_LANES) == 0, "rows of the covariance are filled by two registers at once");

// covariance = sum of power * echo * echo^T, plus `noise` on the diagonal; the lower half.
void build_covariance(double noise, learnt_channel* l)
{
    for (uint32_t r = 0; r < l->rank; ++r) {
        double weighted[ECHO_DELAYS];
        for (uint32_t j = 0; j < ECHO_DELAYS; ++j) {
            weighted[j] = l->power[j] * l->echo[j][r];
        }
        for (uint32_t c = 0; c <= r; c += 2 * SIMD_LANES) {
            simd sum[2] = {};
            for (uint32_t j = 0; j < ECHO_DELAYS; ++j) {
                sum[0] += broadcast(weighted[j]) * load_simd(&l->echo[j][c]);
                sum[1] += broadcast(weighted[j]) * load_simd(&l->echo[j][c + SIMD_LANES]);
            }
            store_simd(&l->covariance[r][c], sum[0]);
            store_simd(&l->covariance[r][c + SIMD_LANES], sum[1]);
        }
        l->covariance[r][r] += noise;
    }
}

// Cholesky's factor of the covariance, in its lower half.
void factorise(learnt_channel* l)
{
    constexpr double LEAST = 1e-30;
    for (uint32_t j = 0; j < l->rank; ++j) {
        double* const row = l->covariance[j];
        for (uint32_t k = 0; k < j; ++k) {
            row[j] -= row[k] * row[k];
        }
        row[j] = std::sqrt(std::max(row[j], LEAST));
        for (uint32_t i = j + 1; i < l->rank; ++i) {
            double sum = l->covariance[i][j];
            for (uint32_t k = 0; k < j; ++k) {
                sum -= l->covariance[i][k] * row[k];
            }
            l->covariance[i][j] = sum / row[j];
        }
    }
}

// Solves factor * x = b for the columns of b, in their place.
template <uint32_t COLUMNS> void substitute(const learnt_channel& l, double (*b)[COLUMNS])
{
    for (uint32_t i = 0; i < l.rank; ++i) {
        double row[COLUMNS];
        std::copy_n(b[i], COLUMNS, row);
        for (uint32_t k = 0; k < i; ++k) {
            const double factor = l.covariance[i][k];
            for (uint32_t c = 0; c < COLUMNS; ++c) {
                row[c] -= factor * b[k][c];
            }
        }
        const double inverse = 1 / l.covariance[i][i];
        for (uint32_t c = 0; c < COLUMNS; ++c) {
            b[i][c] = row[c] * inverse;
        }
    }
}

// One step of expectation and maximisation: each power becomes the mean square of its echo's amplitude, given the
// measured coefficients and all powers so far. With the covariance C it is p + p^2 * (|e^T C^-1 m|^2 - e^T C^-1 e).
void learn_once(const kom_complex* measured, double noise, double least, learnt_channel* l)
{
    constexpr uint32_t RE = ECHO_DELAYS; // columns behind the echoes
    constexpr uint32_t IM = ECHO_DELAYS + 1;
    build_covariance(noise, l);
    factorise(l);
    double white[MAX_RANK][ECHO_DELAYS + 2];
    for (uint32_t r = 0; r < l->rank; ++r) {
        for (uint32_t j = 0; j < ECHO_DELAYS; ++j) {
            white[r][j] = l->echo[j][r];
        }
        white[r][RE] = measured[r].re;
        white[r][IM] = measured[r].im;
    }
    substitute(*l, white);
    for (uint32_t j = 0; j < ECHO_DELAYS; ++j) {
        double re = 0.0;
        double im = 0.0;
        double energy = 0.0;
        for (uint32_t r = 0; r < l->rank; ++r) {
            re += white[r][j] * white[r][RE];
            im += white[r][j] * white[r][IM];
            energy += white[r][j] * white[r][j];
        }
        const double p = l->power[j];
        l->power[j] = std::max(p + p * p * (re * re + im * im - energy), least);
    }
}

// shrink = R * (R + noise)^-1 = 1 - noise * (R + noise)^-1, with the covariance R of the channel: the linear
// minimum-mean-square estimate, whose error has noise times the trace of `shrink`.
void find_shrinking(double noise, learnt_channel* l)
{
    build_covariance(noise, l);
    factorise(l);
    double inverse[MAX_RANK][MAX_RANK] = {}; // of the factor
    for (uint32_t r = 0; r < l->rank; ++r) {
        inverse[r][r] = 1.0;
    }
    substitute(*l, inverse);
    l->error = 0.0;
    for (uint32_t r = 0; r < l->rank; ++r) {
        double row[MAX_RANK] = {};
        row[r] = 1.0;
        for (uint32_t i = r; i < l->rank; ++i) {
            const double weighted = noise * inverse[i][r];
            for (uint32_t c = 0; c < MAX_RANK; ++c) {
                row[c] -= weighted * inverse[i][c];
            }
        }
        std::copy_n(row, MAX_RANK, l->shrink[r]);
        l->error += noise * row[r] / WEAK_SC_NUM;
    }
}

// Coefficients of a symmetric sequence are real, of an antisymmetric one imaginary: see learnt_channel.
kom_complex onto_axis(uint32_t r, kom_complex c) { return r % 2 == 0 ? c : kom_complex{c.im, -c.re}; }

kom_complex off_axis(uint32_t r, kom_complex c) { return r % 2 == 0 ? c : kom_complex{-c.im, c.re}; }

// What the mean of `count` symbols' coefficients lets expect of the channel, into channel->response.
void find_response(const kom_complex* sum, double count, const learnt_channel& l, frame_channel* channel)
{
    std::fill_n(channel->response, size_t{2} * WEAK_SC_NUM, 0.0);
    for (uint32_t r = 0; r < l.rank; ++r) {
        kom_complex c = {0.0, 0.0};
        for (uint32_t k = 0; k < l.rank; ++k) {
            c = c + onto_axis(k, sum[k]) * kom_complex{l.shrink[r][k] / count, 0.0};
        }
        c = off_axis(r, c);
        const double* const row = channel->smoother->basis + size_t{2} * WEAK_SC_NUM * r;
        for (uint32_t k = 0; k < WEAK_SC_NUM; ++k) {
            store(channel->response, k, load(channel->response, k) + c * load(row, k));
        }
    }
}

} // namespace

bool init_learnt_channel(const channel_smoother_t& smoother, learnt_channel* learnt)
{
    learnt->rank = smoother.rank;
    if (smoother.rank > MAX_RANK) {
        return false;
    }
    std::fill_n(learnt->echo[0], ECHO_DELAYS * MAX_RANK, 0.0);
    for (uint32_t j = 0; j < ECHO_DELAYS; ++j) {
        const double delay = ECHO_DELAY_STEP * (static_cast<double>(j) - FIRST_ECHO_DELAY);
        double response[2 * WEAK_SC_NUM];
        double coefficients[2 * MAX_RANK];
        for (uint32_t k = 0; k < WEAK_SC_NUM; ++k) {
            const double angle = -2 * PI * k * delay / WEAK_SYMBOL_LEN;
            store(response, k, {std::cos(angle), std::sin(angle)});
        }
        channel_smoother_analyse(&smoother, response, coefficients);
        kom_complex squares = {0.0, 0.0}; // twice the phase that all coefficients share
        for (uint32_t r = 0; r < smoother.rank; r += 2) {
            squares = squares + load(coefficients, r) * load(coefficients, r);
        }
        const double phase = std::atan2(squares.im, squares.re) / 2;
        for (uint32_t r = 0; r < smoother.rank; ++r) {
            learnt->echo[j][r] =
                onto_axis(r, load(coefficients, r) * kom_complex{std::cos(phase), -std::sin(phase)}).re;
        }
    }
    return true;
}

void learn_channel(const channel_estimate& estimate, const double* joint, learnt_channel* learnt)
{
    kom_complex mean[MAX_RANK];
    for (uint32_t r = 0; r < learnt->rank; ++r) {
        mean[r] = onto_axis(r, load(joint, r)) * kom_complex{1.0 / estimate.symbols, 0.0};
    }
    const double flat = estimate.signal / DELAYS_IN_PREFIX;
    std::fill_n(learnt->power, ECHO_DELAYS, flat);
    for (int i = 0; i < LEARNING_STEPS; ++i) {
        learn_once(mean, estimate.noise / estimate.symbols, LEAST_POWER * flat, learnt);
    }
}

void soften(const channel_estimate& estimate, bool leave_out, frame_channel* channel, learnt_channel* learnt,
            float* llr)
{
    const soundcomm_paras_t& paras = *channel->paras;
    const double count = estimate.symbols - (leave_out ? 1.0 : 0.0);
    find_shrinking(estimate.noise / count, learnt);
    kom_complex sum[MAX_RANK];
    for (uint32_t r = 0; r < learnt->rank; ++r) {
        sum[r] = load(channel->joint, r);
    }
    find_response(sum, count, *learnt, channel);
    const double scale = 4 * QPSK_LEVEL[1] / std::max(estimate.noise + learnt->error, 1e-30);
    for (uint32_t i = 0; i < paras.frame.symbols; ++i) {
        if (is_pilot(paras, i)) {
            continue;
        }
        const kom_complex turn = {std::cos(channel->phases[i]), std::sin(channel->phases[i])};
        if (leave_out) {
            for (uint32_t r = 0; r < learnt->rank; ++r) {
                sum[r] = load(channel->joint, r) - load(coefficient_row(*channel, i), r) * conj(turn);
            }
            find_response(sum, count, *learnt, channel);
        }
        double values[2 * WEAK_SC_NUM];
        const double* const received = symbol_row(paras, channel->received, i);
        for (uint32_t k = 0; k < WEAK_SC_NUM; ++k) {
            store(values, k, load(received, k) * conj(turn * load(channel->response, k)));
        }
        phase_restore(values, WEAK_SC_NUM, paras.phase_pattern);
        for (const double value : values) {
            *llr++ = std::clamp(static_cast<float>(scale * value), -MAX_LLR, MAX_LLR);
        }
    }
}

} // namespace kosc
