#include "combine/learnt_channel.h"

#include <algorithm>
#include <cmath>

#include "config/qpsk_constants.h"
#include "kosc/papr.h"
#include "math/constants.h"

namespace kosc {
namespace {

constexpr int LEARNING_STEPS = 4;
constexpr double LEAST_POWER = 0.05; // of an echo's, as a share of what it had if all were alike
constexpr double DELAYS_IN_PREFIX = 32;

// covariance = sum of power * echo * echo^H, plus `noise` on the diagonal; the lower half.
void build_covariance(double noise, learnt_channel* l)
{
    for (uint32_t i = 0; i < l->rank; ++i) {
        for (uint32_t k = 0; k <= i; ++k) {
            kom_complex sum = {i == k ? noise : 0.0, 0.0};
            for (uint32_t j = 0; j < ECHO_DELAYS; ++j) {
                const kom_complex weighted = {l->power[j] * l->echo[j][i].re, l->power[j] * l->echo[j][i].im};
                sum = sum + weighted * conj(l->echo[j][k]);
            }
            l->covariance[i][k] = sum;
        }
    }
}

// Cholesky's factor of the covariance, in its place.
void factorise(learnt_channel* l)
{
    constexpr double LEAST = 1e-30;
    for (uint32_t j = 0; j < l->rank; ++j) {
        kom_complex* const row = l->covariance[j];
        double pivot = row[j].re;
        for (uint32_t k = 0; k < j; ++k) {
            pivot -= power(row[k]);
        }
        const double root = std::sqrt(std::max(pivot, LEAST));
        row[j] = {root, 0.0};
        for (uint32_t i = j + 1; i < l->rank; ++i) {
            kom_complex sum = l->covariance[i][j];
            for (uint32_t k = 0; k < j; ++k) {
                sum = sum - l->covariance[i][k] * conj(row[k]);
            }
            l->covariance[i][j] = sum * kom_complex{1 / root, 0.0};
        }
    }
}

// b becomes the solution of factor * x = b.
void substitute(const learnt_channel& l, kom_complex* b)
{
    for (uint32_t i = 0; i < l.rank; ++i) {
        kom_complex sum = b[i];
        for (uint32_t k = 0; k < i; ++k) {
            sum = sum - l.covariance[i][k] * b[k];
        }
        b[i] = sum * kom_complex{1 / l.covariance[i][i].re, 0.0};
    }
}

// Likewise of factor^H * x = b.
void substitute_back(const learnt_channel& l, kom_complex* b)
{
    for (uint32_t i = l.rank; i-- > 0;) {
        kom_complex sum = b[i];
        for (uint32_t k = i + 1; k < l.rank; ++k) {
            sum = sum - conj(l.covariance[k][i]) * b[k];
        }
        b[i] = sum * kom_complex{1 / l.covariance[i][i].re, 0.0};
    }
}

// One step of expectation and maximisation: each power becomes the mean square of its echo's amplitude, given the
// measured coefficients and all powers so far.
void learn_once(const kom_complex* coefficients, double noise, double least, learnt_channel* l)
{
    build_covariance(noise, l);
    factorise(l);
    kom_complex white[MAX_RANK];
    std::copy_n(coefficients, l->rank, white);
    substitute(*l, white);
    for (uint32_t j = 0; j < ECHO_DELAYS; ++j) {
        kom_complex echo[MAX_RANK];
        std::copy_n(l->echo[j], l->rank, echo);
        substitute(*l, echo);
        kom_complex product = {0.0, 0.0};
        double energy = 0.0;
        for (uint32_t r = 0; r < l->rank; ++r) {
            product = product + conj(echo[r]) * white[r];
            energy += power(echo[r]);
        }
        const double p = l->power[j];
        l->power[j] = std::max(p * p * power(product) + p - p * p * energy, least);
    }
}

// shrink = R * (R + noise)^-1 = 1 - noise * (R + noise)^-1, with the covariance R of the channel: the linear
// minimum-mean-square estimate, whose error has noise times the trace of `shrink`.
void find_shrinking(double noise, learnt_channel* l)
{
    build_covariance(noise, l);
    factorise(l);
    double trace = 0.0;
    for (uint32_t c = 0; c < l->rank; ++c) {
        kom_complex unit[MAX_RANK] = {};
        unit[c] = {1.0, 0.0};
        substitute(*l, unit);
        substitute_back(*l, unit);
        for (uint32_t r = 0; r < l->rank; ++r) {
            l->shrink[r][c] = kom_complex{r == c ? 1.0 : 0.0, 0.0} - unit[r] * kom_complex{noise, 0.0};
        }
        trace += l->shrink[c][c].re;
    }
    l->error = noise * trace / WEAK_SC_NUM;
}

// The response that symbol `i` is demapped with, turned to the symbol's phase, into channel->response.
void find_response(const channel_estimate& estimate, bool leave_out, uint32_t i, const learnt_channel& l,
                   frame_channel* channel)
{
    const double others = estimate.symbols - (leave_out ? 1.0 : 0.0);
    const kom_complex turn = {std::cos(channel->phases[i]), std::sin(channel->phases[i])};
    kom_complex mean[MAX_RANK];
    for (uint32_t r = 0; r < l.rank; ++r) {
        const kom_complex joint = load(channel->joint, r);
        const kom_complex rest = leave_out ? joint - load(coefficient_row(*channel, i), r) * conj(turn) : joint;
        mean[r] = rest * kom_complex{1 / others, 0.0};
    }
    std::fill_n(channel->response, size_t{2} * WEAK_SC_NUM, 0.0);
    for (uint32_t r = 0; r < l.rank; ++r) {
        kom_complex c = {0.0, 0.0};
        for (uint32_t k = 0; k < l.rank; ++k) {
            c = c + l.shrink[r][k] * mean[k];
        }
        c = c * turn;
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
    for (uint32_t j = 0; j < ECHO_DELAYS; ++j) {
        const double delay = ECHO_DELAY_STEP * (static_cast<double>(j) - FIRST_ECHO_DELAY);
        double response[2 * WEAK_SC_NUM];
        double coefficients[2 * MAX_RANK];
        for (uint32_t k = 0; k < WEAK_SC_NUM; ++k) {
            const double angle = -2 * PI * k * delay / WEAK_SYMBOL_LEN;
            store(response, k, {std::cos(angle), std::sin(angle)});
        }
        channel_smoother_analyse(&smoother, response, coefficients);
        for (uint32_t r = 0; r < smoother.rank; ++r) {
            learnt->echo[j][r] = load(coefficients, r);
        }
    }
    return true;
}

void learn_channel(const channel_estimate& estimate, const double* joint, learnt_channel* learnt)
{
    kom_complex mean[MAX_RANK];
    for (uint32_t r = 0; r < learnt->rank; ++r) {
        mean[r] = load(joint, r) * kom_complex{1.0 / estimate.symbols, 0.0};
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
    find_shrinking(estimate.noise / (estimate.symbols - (leave_out ? 1.0 : 0.0)), learnt);
    const double scale = 4 * QPSK_LEVEL[1] / std::max(estimate.noise + learnt->error, 1e-30);
    for (uint32_t i = 0; i < paras.frame.symbols; ++i) {
        if (is_pilot(paras, i)) {
            continue;
        }
        find_response(estimate, leave_out, i, *learnt, channel);
        double values[2 * WEAK_SC_NUM];
        const double* const received = symbol_row(paras, channel->received, i);
        for (uint32_t k = 0; k < WEAK_SC_NUM; ++k) {
            store(values, k, load(received, k) * conj(load(channel->response, k)));
        }
        phase_restore(values, WEAK_SC_NUM, paras.phase_pattern);
        for (const double value : values) {
            *llr++ = std::clamp(static_cast<float>(scale * value), -MAX_LLR, MAX_LLR);
        }
    }
}

} // namespace kosc
