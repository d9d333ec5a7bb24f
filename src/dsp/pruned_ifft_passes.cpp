#include "dsp/pruned_ifft_engine.h"
#include "math/simd.h"
#include "platform/unroll.h"

using namespace kosc;

namespace {

constexpr uint32_t POINTS = PRUNED_POINTS;

simd_complex broadcast_value(const double* values, uint32_t k)
{
    return {broadcast(values[2 * k]), broadcast(values[2 * k + 1])};
}

// Brings every subcarrier and its mirror into their rows.
template <typename Lanes>
void fold_subcarriers(const pruned_ifft* e, const double* values, double* re, double* im, Lanes lanes)
{
    for (uint32_t row = 0; row < POINTS; ++row) {
        const simd_complex direct = broadcast_value(values, e->direct[row]);
        const simd_complex mirrored = broadcast_value(values, e->mirrored[row]);
        for (uint32_t at = row * lanes; at < (row + 1) * lanes; at += SIMD_LANES) {
            store_complex(re + at, im + at,
                          load_complex(e->re + at, e->im + at) * direct +
                              times_conjugate(load_complex(e->mirror_re + at, e->mirror_im + at), mirrored));
        }
    }
}

// The same lanes of four rows.
struct four_points {
    simd_complex x[4];
};

inline four_points load_rows(const double* re, const double* im, uint32_t step)
{
    return {{load_complex(re, im), load_complex(re + step, im + step), load_complex(re + 2 * step, im + 2 * step),
             load_complex(re + 3 * step, im + 3 * step)}};
}

inline void store_rows(double* re, double* im, uint32_t step, const four_points& p)
{
    KOSC_UNROLL
    for (uint32_t i = 0; i < 4; ++i) {
        store_complex(re + i * step, im + i * step, p.x[i]);
    }
}

// Two passes of the transform over four points.
inline four_points join(const four_points& p)
{
    const simd_complex even = p.x[0] + p.x[1];
    const simd_complex odd = p.x[0] - p.x[1];
    const simd_complex sum = p.x[2] + p.x[3];
    const simd_complex difference = times_i(p.x[2] - p.x[3]);
    return {{even + sum, odd + difference, even - sum, odd - difference}};
}

// The same with turns before the first pass and the second.
inline four_points join(const four_points& p, simd_complex w1, simd_complex w2)
{
    const simd_complex z0 = p.x[1] * w1;
    const simd_complex z1 = p.x[3] * w1;
    const simd_complex sum = (p.x[2] + z1) * w2;
    const simd_complex difference = times_i((p.x[2] - z1) * w2);
    const simd_complex even = p.x[0] + z0;
    const simd_complex odd = p.x[0] - z0;
    return {{even + sum, odd + difference, even - sum, odd - difference}};
}

// All passes but the last two, in which points are `half_len` rows apart.
template <typename Lanes> void transform_rows(const pruned_ifft* e, double* re, double* im, Lanes lanes)
{
    for (uint32_t half_len = 1; half_len < POINTS / 4; half_len *= 4) {
        const uint32_t step = lanes * half_len;
        for (uint32_t first = 0; first < lanes * POINTS; first += 4 * step) {
            for (uint32_t at = first; at < first + lanes; at += SIMD_LANES) {
                store_rows(re + at, im + at, step, join(load_rows(re + at, im + at, step)));
            }
            for (uint32_t a = 1; a < half_len; ++a) {
                const simd_complex w1 = broadcast(e->turn[POINTS / 2 / half_len * a]);
                const simd_complex w2 = broadcast(e->turn[POINTS / 4 / half_len * a]);
                for (uint32_t at = first + a * lanes; at < first + (a + 1) * lanes; at += SIMD_LANES) {
                    store_rows(re + at, im + at, step, join(load_rows(re + at, im + at, step), w1, w2));
                }
            }
        }
    }
}

// The last two passes, whose results are samples: the real part of each number, then its imaginary one.
template <typename Lanes>
void finish_rows(const pruned_ifft* e, const double* re, const double* im, double* samples, Lanes lanes)
{
    constexpr uint32_t HALF_LEN = POINTS / 4;
    const uint32_t step = lanes * HALF_LEN;
    for (uint32_t a = 0; a < HALF_LEN; ++a) {
        const simd_complex w1 = broadcast(e->turn[POINTS / 2 / HALF_LEN * a]);
        const simd_complex w2 = broadcast(e->turn[POINTS / 4 / HALF_LEN * a]);
        for (uint32_t at = a * lanes; at < (a + 1) * lanes; at += SIMD_LANES) {
            const four_points p = join(load_rows(re + at, im + at, step), w1, w2);
            KOSC_UNROLL
            for (uint32_t i = 0; i < 4; ++i) {
                double* const out = samples + 2 * (at + i * step);
                store_simd(out, interleave_low(p.x[i].re, p.x[i].im));
                store_simd(out + SIMD_LANES, interleave_high(p.x[i].re, p.x[i].im));
            }
        }
    }
}

template <typename Lanes>
void run(const pruned_ifft* e, const double* values, double* work, double* samples, Lanes lanes)
{
    double* const re = work;
    double* const im = work + POINTS * lanes;
    fold_subcarriers(e, values, re, im, lanes);
    transform_rows(e, re, im, lanes);
    finish_rows(e, re, im, samples, lanes);
}

} // namespace

#if KOSC_SIMD_BYTES == 16
void kosc::run_pruned_ifft_by_two(const pruned_ifft* e, const double* values, double* work, double* samples)
{
    if (e->lanes == usual_lanes{}) {
        run(e, values, work, samples, usual_lanes{});
    } else {
        run(e, values, work, samples, e->lanes);
    }
}
#else
void kosc::run_pruned_ifft_by_four(const pruned_ifft* e, const double* values, double* work, double* samples)
{
    run(e, values, work, samples, usual_lanes{});
}
#endif
