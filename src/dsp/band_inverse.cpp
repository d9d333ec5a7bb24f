#include "dsp/band_inverse.h"

#include <algorithm>
#include <cmath>

#include "math/complex_ops.h"
#include "math/constants.h"
#include "math/pair.h"
#include "platform/owned.h"

using namespace kosc;

namespace {

constexpr uint32_t POINTS = 64;
constexpr uint32_t POINT_BITS = 6;
constexpr uint32_t MIN_SYMBOL_LEN = 2 * POINTS * PAIR;
constexpr uint32_t MAX_SYMBOL_LEN = 8192;
constexpr uint32_t MAX_COUNT = 2 * POINTS; // a wider band is no longer sparse

kom_complex unit(double angle) { return {std::cos(angle), std::sin(angle)}; }

uint32_t reversed_point(uint32_t bin)
{
    uint32_t row = 0;
    for (uint32_t bit = 0; bit < POINT_BITS; ++bit) {
        row |= (bin >> bit & 1) << (POINT_BITS - 1 - bit);
    }
    return row;
}

} // namespace

struct band_inverse {
    uint32_t count; // subcarriers
    uint32_t lanes; // R
    // Where subcarrier k and its mirror are added, as rows of `lanes` in bit-reversed order.
    uint32_t row[MAX_COUNT];
    uint32_t mirror_row[MAX_COUNT];
    kom_complex turn[POINTS]; // exp(i*2*pi*k/POINTS)
    // For each subcarrier `lanes` factors, real parts apart from imaginary ones; the mirror's multiply the conjugate.
    double* re;
    double* im;
    double* mirror_re;
    double* mirror_im;
};

namespace {

// Adds value * factors to a row.
inline void add_product(double* re, double* im, kom_complex value, const double* factor_re, const double* factor_im,
                        uint32_t lanes)
{
    for (uint32_t r = 0; r < lanes; r += PAIR) {
        store_complex(re + r, im + r,
                      load_complex(re + r, im + r) + load_complex(factor_re + r, factor_im + r) * both(value));
    }
}

// Two passes of the transform over rows `first` and three further ones, `step` apart.
inline void join_rows(double* re, double* im, uint32_t step, uint32_t lanes, kom_complex w1, kom_complex w2)
{
    for (uint32_t r = 0; r < lanes; r += PAIR) {
        const complex_pair x0 = load_complex(re + r, im + r);
        const complex_pair z0 = load_complex(re + step + r, im + step + r) * both(w1);
        const complex_pair x1 = load_complex(re + 2 * step + r, im + 2 * step + r);
        const complex_pair z1 = load_complex(re + 3 * step + r, im + 3 * step + r) * both(w1);
        const complex_pair sum = (x1 + z1) * both(w2);
        const complex_pair difference = times_i((x1 - z1) * both(w2));
        store_complex(re + r, im + r, (x0 + z0) + sum);
        store_complex(re + step + r, im + step + r, (x0 - z0) + difference);
        store_complex(re + 2 * step + r, im + 2 * step + r, (x0 + z0) - sum);
        store_complex(re + 3 * step + r, im + 3 * step + r, (x0 - z0) - difference);
    }
}

void fold_band(const band_inverse* e, const double* values, double* re, double* im)
{
    for (uint32_t k = 0; k < e->count; ++k) {
        const kom_complex value = load(values, k);
        const uint32_t at = e->lanes * e->row[k];
        const uint32_t mirror_at = e->lanes * e->mirror_row[k];
        const uint32_t factors = e->lanes * k;
        add_product(re + at, im + at, value, e->re + factors, e->im + factors, e->lanes);
        add_product(re + mirror_at, im + mirror_at, {value.re, -value.im}, e->mirror_re + factors,
                    e->mirror_im + factors, e->lanes);
    }
}

void transform_rows(const band_inverse* e, double* re, double* im)
{
    for (uint32_t dual = 1; dual < POINTS; dual *= 4) {
        for (uint32_t first = 0; first < POINTS; first += 4 * dual) {
            for (uint32_t a = 0; a < dual; ++a) {
                const uint32_t at = e->lanes * (first + a);
                join_rows(re + at, im + at, e->lanes * dual, e->lanes, e->turn[POINTS / 2 / dual * a],
                          e->turn[POINTS / 4 / dual * a]);
            }
        }
    }
}

// The factors of subcarrier bin `bin` in lane r: sample pair j = R*q + r is (1 + i*exp(i*t)) * exp(i*2*j*t) of it, with
// t = 2*pi*bin/n, and the same with -t of its conjugate; what depends on q is left to the transform.
void set_factors(band_inverse* e, uint32_t symbol_len, uint32_t k, uint32_t bin)
{
    const double t = 2.0 * PI * bin / symbol_len;
    const double scale = 1.0 / symbol_len;
    for (uint32_t r = 0; r < e->lanes; ++r) {
        const kom_complex odd = unit(t + PI / 2.0);
        const kom_complex mirror_odd = unit(PI / 2.0 - t);
        const kom_complex step = unit(2.0 * r * t);
        const kom_complex factor = kom_complex{1.0 + odd.re, odd.im} * step;
        const kom_complex mirror_factor =
            kom_complex{1.0 + mirror_odd.re, mirror_odd.im} * kom_complex{step.re, -step.im};
        const uint32_t at = e->lanes * k + r;
        e->re[at] = factor.re * scale;
        e->im[at] = factor.im * scale;
        e->mirror_re[at] = mirror_factor.re * scale;
        e->mirror_im[at] = mirror_factor.im * scale;
    }
}

} // namespace

namespace kosc {

band_inverse* band_inverse_init(uint32_t symbol_len, uint32_t start, uint32_t count)
{
    const bool serves = symbol_len >= MIN_SYMBOL_LEN && symbol_len <= MAX_SYMBOL_LEN &&
                        (symbol_len & (symbol_len - 1)) == 0 && start != 0 && count <= MAX_COUNT &&
                        uint64_t{start} + count < symbol_len / 2;
    owned<band_inverse, band_inverse_free> e{serves ? alloc_record<band_inverse>() : nullptr};
    if (!e) {
        return nullptr;
    }
    e->count = count;
    e->lanes = symbol_len / (2 * POINTS);
    const size_t factors = size_t{count} * e->lanes;
    e->re = alloc_array<double>(4 * factors);
    if (e->re == nullptr) {
        return nullptr;
    }
    e->im = e->re + factors;
    e->mirror_re = e->im + factors;
    e->mirror_im = e->mirror_re + factors;
    for (uint32_t k = 0; k < count; ++k) {
        e->row[k] = reversed_point((start + k) % POINTS);
        e->mirror_row[k] = reversed_point((POINTS - (start + k) % POINTS) % POINTS);
        set_factors(e.get(), symbol_len, k, start + k);
    }
    for (uint32_t k = 0; k < POINTS; ++k) {
        e->turn[k] = unit(2.0 * PI * k / POINTS);
    }
    return e.release();
}

void band_inverse_free(band_inverse* engine)
{
    if (engine != nullptr) {
        std::free(engine->re);
        std::free(engine);
    }
}

uint32_t band_inverse_work(const band_inverse* engine) { return 2 * POINTS * engine->lanes; }

void band_inverse_run(const band_inverse* e, const double* values, double* work, double* samples)
{
    const uint32_t numbers = POINTS * e->lanes;
    double* const re = work;
    double* const im = work + numbers;
    std::fill_n(work, 2 * numbers, 0.0);
    fold_band(e, values, re, im);
    transform_rows(e, re, im);
    for (uint32_t j = 0; j < numbers; j += PAIR) {
        const complex_pair z = load_complex(re + j, im + j);
        store_pair(samples + 2 * j, firsts(z.re, z.im));
        store_pair(samples + 2 * j + PAIR, seconds(z.re, z.im));
    }
}

} // namespace kosc
