#include "sync/overlap_save.h"

#include <algorithm>
#include <cmath>

#include "math/complex_ops.h"
#include "math/constants.h"
#include "platform/owned.h"
#include "sync/overlap_save_blocks.h"

using namespace kosc;

namespace {

kom_complex phasor(double angle) { return {std::cos(angle), std::sin(angle)}; }

// The angle of the constant c of ring k after `depth` quarterings. The whole block is taken modulo x^M - i, so that it
// begins with pi/2; x^(4m) - exp(i*t) splits into the x^m - exp(i*(t/4 + j*pi/2)), j = 0 .. 3, and the base-4 digits of
// k, the highest first, are the j of each quartering.
double ring_angle(uint32_t depth, uint32_t k)
{
    double angle = PI / 2.0;
    for (uint32_t level = 1; level <= depth; ++level) {
        angle = angle / 4.0 + PI / 2.0 * (k >> (2 * (depth - level)) & 3);
    }
    return angle;
}

// The angle of the constant of leaf k of a block.
template <uint32_t size> double leaf_angle(uint32_t k)
{
    if (size == MIDDLE) {
        return ring_angle(LEVELS - 1, k / 2) / 2.0 + PI * (k % 2);
    }
    return ring_angle(size == LARGE ? LEVELS : LEVELS - 1, k);
}

// The residues of a part of the pattern in the leaves of a block, divided by the factor that join() multiplies by.
template <uint32_t size> void take_pattern(overlap_save* e, const double* part, uint32_t part_len, leaf_pattern* leaves)
{
    constexpr double SCALE = static_cast<double>(LEAF) / size;
    double reversed[PATTERN_LEN];
    std::reverse_copy(part, part + part_len, reversed);
    split_samples<size>(e, reversed, part_len);
    for (uint32_t k = 0; k < size / LEAF; ++k) {
        const kom_complex g0 = {e->re[LEAF * k] * SCALE, e->im[LEAF * k] * SCALE};
        const kom_complex g1 = {e->re[LEAF * k + 1] * SCALE, e->im[LEAF * k + 1] * SCALE};
        const kom_complex wrapped = phasor(leaf_angle<size>(k)) * g1;
        leaves[k] = {{g0.re, g1.re}, {g0.im, g1.im}, {wrapped.re, g0.re}, {wrapped.im, g0.im}};
    }
}

void set_factors(overlap_save* e)
{
    for (uint32_t level = 0; level < LEVELS; ++level) {
        for (uint32_t k = 0; k < uint32_t{1} << (2 * level); ++k) {
            const double root = ring_angle(level, k) / 4.0;
            e->quarter[FIRST_RING[level] + k] = {phasor(root), phasor(2.0 * root), phasor(3.0 * root)};
        }
    }
    for (uint32_t k = 0; k < HALVED_RINGS; ++k) {
        e->half[k] = phasor(ring_angle(LEVELS - 1, k) / 2.0);
    }
}

} // namespace

namespace kosc {

overlap_save* overlap_save_init(const double* pattern)
{
    auto* const e = alloc_record<overlap_save>();
    if (e == nullptr) {
        return nullptr;
    }
    set_factors(e);
    constexpr uint32_t PART_LEN = PATTERN_LEN / SMALL_PARTS;
    take_pattern<SMALL>(e, pattern, PART_LEN, e->small_pattern);
    take_pattern<SMALL>(e, pattern + PART_LEN, PART_LEN, e->small_pattern + SMALL / LEAF);
    take_pattern<MIDDLE>(e, pattern, PATTERN_LEN, e->middle_pattern);
    take_pattern<LARGE>(e, pattern, PATTERN_LEN, e->large_pattern);
    return e;
}

void overlap_save_free(overlap_save* engine) { std::free(engine); }

void overlap_save_run(overlap_save* engine, const double* signal, uint32_t count, double* products)
{
#ifdef KOSC_HAS_AVX2
    if (__builtin_cpu_supports("avx2")) {
        run_blocks_by_four(engine, signal, count, products);
        return;
    }
#endif
    run_blocks_by_two(engine, signal, count, products);
}

} // namespace kosc
