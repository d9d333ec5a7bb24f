#include "dsp/band_inverse_engine.h"
#include "math/pair.h"

using namespace kosc;

namespace {

constexpr uint32_t POINTS = BAND_POINTS;

complex_pair both_of(const double* values, uint32_t k) { return {both(values[2 * k]), both(values[2 * k + 1])}; }

// Brings every subcarrier and its mirror into their rows.
template <typename Lanes>
void fold_band(const band_inverse* e, const double* values, double* re, double* im, Lanes lanes)
{
    for (uint32_t row = 0; row < POINTS; ++row) {
        const complex_pair direct = both_of(values, e->direct[row]);
        const complex_pair mirrored = both_of(values, e->mirrored[row]);
        for (uint32_t at = row * lanes; at < (row + 1) * lanes; at += PAIR) {
            store_complex(re + at, im + at,
                          load_complex(e->re + at, e->im + at) * direct +
                              times_conjugate(load_complex(e->mirror_re + at, e->mirror_im + at), mirrored));
        }
    }
}

// The same lanes of four rows.
struct four_points {
    complex_pair x[4];
};

inline four_points load_rows(const double* re, const double* im, uint32_t step)
{
    return {{load_complex(re, im), load_complex(re + step, im + step), load_complex(re + 2 * step, im + 2 * step),
             load_complex(re + 3 * step, im + 3 * step)}};
}

inline void store_rows(double* re, double* im, uint32_t step, const four_points& p)
{
    for (uint32_t i = 0; i < 4; ++i) {
        store_complex(re + i * step, im + i * step, p.x[i]);
    }
}

// Two passes of the transform over four points.
inline four_points join(const four_points& p)
{
    const complex_pair even = p.x[0] + p.x[1];
    const complex_pair odd = p.x[0] - p.x[1];
    const complex_pair sum = p.x[2] + p.x[3];
    const complex_pair difference = times_i(p.x[2] - p.x[3]);
    return {{even + sum, odd + difference, even - sum, odd - difference}};
}

// The same with turns before the first pass and the second.
inline four_points join(const four_points& p, complex_pair w1, complex_pair w2)
{
    const complex_pair z0 = p.x[1] * w1;
    const complex_pair z1 = p.x[3] * w1;
    const complex_pair sum = (p.x[2] + z1) * w2;
    const complex_pair difference = times_i((p.x[2] - z1) * w2);
    const complex_pair even = p.x[0] + z0;
    const complex_pair odd = p.x[0] - z0;
    return {{even + sum, odd + difference, even - sum, odd - difference}};
}

// All passes but the last two, in which points are `dual` rows apart.
template <typename Lanes> void transform_rows(const band_inverse* e, double* re, double* im, Lanes lanes)
{
    for (uint32_t dual = 1; dual < POINTS / 4; dual *= 4) {
        const uint32_t step = lanes * dual;
        for (uint32_t first = 0; first < lanes * POINTS; first += 4 * step) {
            for (uint32_t at = first; at < first + lanes; at += PAIR) {
                store_rows(re + at, im + at, step, join(load_rows(re + at, im + at, step)));
            }
            for (uint32_t a = 1; a < dual; ++a) {
                const complex_pair w1 = both(e->turn[POINTS / 2 / dual * a]);
                const complex_pair w2 = both(e->turn[POINTS / 4 / dual * a]);
                for (uint32_t at = first + a * lanes; at < first + (a + 1) * lanes; at += PAIR) {
                    store_rows(re + at, im + at, step, join(load_rows(re + at, im + at, step), w1, w2));
                }
            }
        }
    }
}

// The last two passes, whose results are samples: the real part of each number, then its imaginary one.
template <typename Lanes>
void finish_rows(const band_inverse* e, const double* re, const double* im, double* samples, Lanes lanes)
{
    constexpr uint32_t DUAL = POINTS / 4;
    const uint32_t step = lanes * DUAL;
    for (uint32_t a = 0; a < DUAL; ++a) {
        const complex_pair w1 = both(e->turn[POINTS / 2 / DUAL * a]);
        const complex_pair w2 = both(e->turn[POINTS / 4 / DUAL * a]);
        for (uint32_t at = a * lanes; at < (a + 1) * lanes; at += PAIR) {
            const four_points p = join(load_rows(re + at, im + at, step), w1, w2);
            for (uint32_t i = 0; i < 4; ++i) {
                double* const out = samples + 2 * (at + i * step);
                store_pair(out, firsts(p.x[i].re, p.x[i].im));
                store_pair(out + PAIR, seconds(p.x[i].re, p.x[i].im));
            }
        }
    }
}

template <typename Lanes>
void run(const band_inverse* e, const double* values, double* work, double* samples, Lanes lanes)
{
    double* const re = work;
    double* const im = work + POINTS * lanes;
    fold_band(e, values, re, im, lanes);
    transform_rows(e, re, im, lanes);
    finish_rows(e, re, im, samples, lanes);
}

} // namespace

#if KOSC_PAIR_BYTES == 16
void kosc::run_band_by_two(const band_inverse* e, const double* values, double* work, double* samples)
{
    if (e->lanes == usual_lanes{}) {
        run(e, values, work, samples, usual_lanes{});
    } else {
        run(e, values, work, samples, e->lanes);
    }
}
#else
void kosc::run_band_by_four(const band_inverse* e, const double* values, double* work, double* samples)
{
    run(e, values, work, samples, usual_lanes{});
}
#endif
