#include "sync/overlap_save.h"

#include <algorithm>
#include <cmath>

#include "math/complex_ops.h"
#include "math/constants.h"
#include "math/simd.h"
#include "platform/owned.h"

using namespace kosc;

namespace {

// Complex numbers in a block, which splits into rings of LEAF numbers: by quartering four times, after which a large
// block is quartered and a middle one halved once more.
constexpr uint32_t SMALL = 512;
constexpr uint32_t MIDDLE = 1024;
constexpr uint32_t LARGE = 2048;
constexpr uint32_t LEAF = 2;

// A small block takes the pattern in two parts, which cost less than one middle block.
constexpr uint32_t SMALL_PARTS = 2;

// Products that a block yields when the pattern is taken in so many parts.
constexpr uint32_t block_yield(uint32_t size, uint32_t parts) { return 2 * size - PATTERN_LEN / parts + 1; }

// 1, 4, 16, 64 and 256 rings are quartered; the same 256 rings of a middle block are halved.
constexpr uint32_t LEVELS = 5;
constexpr uint32_t FIRST_RING[LEVELS] = {0, 1, 5, 21, 85};
constexpr uint32_t QUARTERED_RINGS = 341;
constexpr uint32_t HALVED_RINGS = 256;

// Fourth root of a ring's constant, and its powers.
struct quarter_factor {
    kom_complex r1, r2, r3;
};

// The pattern's residue g0 + g1*x in a leaf x^2 - c, as the columns of its product matrix: (g0, g1) and (c*g1, g0).
struct leaf_pattern {
    double first_re[LEAF], first_im[LEAF];
    double second_re[LEAF], second_im[LEAF];
};

kom_complex unit(double angle) { return {std::cos(angle), std::sin(angle)}; }

} // namespace

struct overlap_save {
    quarter_factor quarter[QUARTERED_RINGS];
    kom_complex half[HALVED_RINGS];
    leaf_pattern small_pattern[SMALL_PARTS * SMALL / LEAF];
    leaf_pattern middle_pattern[MIDDLE / LEAF];
    leaf_pattern large_pattern[LARGE / LEAF];
    double re[LARGE];
    double im[LARGE];
    double sum_re[SMALL];
    double sum_im[SMALL];
};

namespace {

// Residues of a ring of 4m numbers in its four parts, in place.
template <uint32_t m> inline void quarter_ring(double* re, double* im, const quarter_factor& f)
{
    for (uint32_t j = 0; j < m; j += SIMD_LANES) {
        const simd_complex a = load_complex(re + j, im + j);
        const simd_complex b1 = load_complex(re + m + j, im + m + j) * broadcast(f.r1);
        const simd_complex b2 = load_complex(re + 2 * m + j, im + 2 * m + j) * broadcast(f.r2);
        const simd_complex b3 = load_complex(re + 3 * m + j, im + 3 * m + j) * broadcast(f.r3);
        const simd_complex even_sum = a + b2;
        const simd_complex even_difference = a - b2;
        const simd_complex odd_sum = b1 + b3;
        const simd_complex odd_difference = times_i(b1 - b3);
        store_complex(re + j, im + j, even_sum + odd_sum);
        store_complex(re + m + j, im + m + j, even_difference + odd_difference);
        store_complex(re + 2 * m + j, im + 2 * m + j, even_sum - odd_sum);
        store_complex(re + 3 * m + j, im + 3 * m + j, even_difference - odd_difference);
    }
}

// Undoes quarter_ring(), up to a factor of 4.
template <uint32_t m> inline void join_quarters(double* re, double* im, const quarter_factor& f)
{
    for (uint32_t j = 0; j < m; j += SIMD_LANES) {
        const simd_complex o0 = load_complex(re + j, im + j);
        const simd_complex o1 = load_complex(re + m + j, im + m + j);
        const simd_complex o2 = load_complex(re + 2 * m + j, im + 2 * m + j);
        const simd_complex o3 = load_complex(re + 3 * m + j, im + 3 * m + j);
        const simd_complex even_sum = o0 + o2;
        const simd_complex even_difference = o0 - o2;
        const simd_complex odd_sum = o1 + o3;
        const simd_complex odd_difference = times_i(o3 - o1);
        store_complex(re + j, im + j, even_sum + odd_sum);
        store_complex(re + m + j, im + m + j, times_conjugate(even_difference + odd_difference, broadcast(f.r1)));
        store_complex(re + 2 * m + j, im + 2 * m + j, times_conjugate(even_sum - odd_sum, broadcast(f.r2)));
        store_complex(re + 3 * m + j, im + 3 * m + j,
                      times_conjugate(even_difference - odd_difference, broadcast(f.r3)));
    }
}

// Residues of a ring of two leaves, in place.
inline void halve_ring(double* re, double* im, kom_complex f)
{
    const simd_complex a = load_complex(re, im);
    const simd_complex b = load_complex(re + LEAF, im + LEAF) * broadcast(f);
    store_complex(re, im, a + b);
    store_complex(re + LEAF, im + LEAF, a - b);
}

// Undoes halve_ring(), up to a factor of 2.
inline void join_halves(double* re, double* im, kom_complex f)
{
    const simd_complex a = load_complex(re, im);
    const simd_complex b = load_complex(re + LEAF, im + LEAF);
    store_complex(re, im, a + b);
    store_complex(re + LEAF, im + LEAF, times_conjugate(a - b, broadcast(f)));
}

// All rings of one level, of 4m numbers each.
template <uint32_t level, uint32_t m> void quarter_level(overlap_save* e)
{
    constexpr uint32_t COUNT = 1 << (2 * level);
    for (uint32_t k = 0; k < COUNT; ++k) {
        quarter_ring<m>(e->re + 4 * m * k, e->im + 4 * m * k, e->quarter[FIRST_RING[level] + k]);
    }
}

template <uint32_t level, uint32_t m> void join_level(overlap_save* e)
{
    constexpr uint32_t COUNT = 1 << (2 * level);
    for (uint32_t k = 0; k < COUNT; ++k) {
        join_quarters<m>(e->re + 4 * m * k, e->im + 4 * m * k, e->quarter[FIRST_RING[level] + k]);
    }
}

// From a block to the residues in its leaves.
template <uint32_t size> void split(overlap_save* e)
{
    quarter_level<0, size / 4>(e);
    quarter_level<1, size / 16>(e);
    quarter_level<2, size / 64>(e);
    quarter_level<3, size / 256>(e);
    if (size == LARGE) {
        quarter_level<4, LEAF>(e);
    } else if (size == MIDDLE) {
        for (uint32_t k = 0; k < HALVED_RINGS; ++k) {
            halve_ring(e->re + 2 * LEAF * k, e->im + 2 * LEAF * k, e->half[k]);
        }
    }
}

// And back, up to a factor of the number of leaves.
template <uint32_t size> void join(overlap_save* e)
{
    if (size == LARGE) {
        join_level<4, LEAF>(e);
    } else if (size == MIDDLE) {
        for (uint32_t k = 0; k < HALVED_RINGS; ++k) {
            join_halves(e->re + 2 * LEAF * k, e->im + 2 * LEAF * k, e->half[k]);
        }
    }
    join_level<3, size / 256>(e);
    join_level<2, size / 64>(e);
    join_level<1, size / 16>(e);
    join_level<0, size / 4>(e);
}

// The product of the numbers (re, im) of a leaf and the pattern's.
inline simd_complex leaf_product(const double* re, const double* im, const leaf_pattern& g)
{
    return broadcast(kom_complex{re[0], im[0]}) * load_complex(g.first_re, g.first_im) +
           broadcast(kom_complex{re[1], im[1]}) * load_complex(g.second_re, g.second_im);
}

void multiply_leaves(overlap_save* e, const leaf_pattern* pattern, uint32_t count)
{
    for (uint32_t k = 0; k < count; ++k) {
        double* const re = e->re + LEAF * k;
        double* const im = e->im + LEAF * k;
        store_complex(re, im, leaf_product(re, im, pattern[k]));
    }
}

void copy(const double* from, uint32_t count, double* to)
{
    memcpy_s(to, count * sizeof(double), from, count * sizeof(double));
}

// Lays a block of up to 2 * size samples out as complex numbers, zeros behind it.
template <uint32_t size> void load_block(overlap_save* e, const double* samples, uint32_t count)
{
    const uint32_t low = std::min(count, size);
    const uint32_t high = count - low;
    copy(samples, low, e->re);
    std::fill(e->re + low, e->re + size, 0.0);
    copy(samples + low, high, e->im);
    std::fill(e->im + high, e->im + size, 0.0);
}

// Copies the products out of a block. A part of the pattern lies reversed in its block, so that the product with the
// samples from p on ends up `part_len` - 1 behind p.
template <uint32_t size> void take_products(const overlap_save* e, uint32_t part_len, uint32_t count, double* products)
{
    const uint32_t low = std::min(count, size - (part_len - 1));
    copy(e->re + (part_len - 1), low, products);
    copy(e->im, count - low, products + low);
}

template <uint32_t size>
void run_block(overlap_save* e, const leaf_pattern* pattern, const double* signal, uint32_t count, double* products)
{
    load_block<size>(e, signal, count + PATTERN_LEN - 1);
    split<size>(e);
    multiply_leaves(e, pattern, size / LEAF);
    join<size>(e);
    take_products<size>(e, PATTERN_LEN, count, products);
}

// Each part of the pattern meets the samples that lie as far behind; their products are added before they are joined.
void run_small_block(overlap_save* e, const double* signal, uint32_t count, double* products)
{
    constexpr uint32_t PART_LEN = PATTERN_LEN / SMALL_PARTS;
    constexpr uint32_t LEAVES = SMALL / LEAF;
    load_block<SMALL>(e, signal, count + PART_LEN - 1);
    split<SMALL>(e);
    multiply_leaves(e, e->small_pattern, LEAVES);
    copy(e->re, SMALL, e->sum_re);
    copy(e->im, SMALL, e->sum_im);
    load_block<SMALL>(e, signal + PART_LEN, count + PART_LEN - 1);
    split<SMALL>(e);
    for (uint32_t k = 0; k < LEAVES; ++k) {
        double* const re = e->re + LEAF * k;
        double* const im = e->im + LEAF * k;
        store_complex(re, im,
                      load_complex(e->sum_re + LEAF * k, e->sum_im + LEAF * k) +
                          leaf_product(re, im, e->small_pattern[LEAVES + k]));
    }
    join<SMALL>(e);
    take_products<SMALL>(e, PART_LEN, count, products);
}

// The angle of the constant of ring k after `depth` quarterings: x^4m - exp(i*angle) splits into rings with a quarter
// of the angle and quarter turns added. The whole block is modulo x^M - i.
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

// The residues of a part of the pattern in the leaves of a block, less the factor that joining brings.
template <uint32_t size> void take_pattern(overlap_save* e, const double* part, uint32_t part_len, leaf_pattern* leaves)
{
    constexpr double SCALE = static_cast<double>(LEAF) / size;
    double reversed[PATTERN_LEN];
    std::reverse_copy(part, part + part_len, reversed);
    load_block<size>(e, reversed, part_len);
    split<size>(e);
    for (uint32_t k = 0; k < size / LEAF; ++k) {
        const kom_complex g0 = {e->re[LEAF * k] * SCALE, e->im[LEAF * k] * SCALE};
        const kom_complex g1 = {e->re[LEAF * k + 1] * SCALE, e->im[LEAF * k + 1] * SCALE};
        const kom_complex wrapped = unit(leaf_angle<size>(k)) * g1;
        leaves[k] = {{g0.re, g1.re}, {g0.im, g1.im}, {wrapped.re, g0.re}, {wrapped.im, g0.im}};
    }
}

void set_factors(overlap_save* e)
{
    for (uint32_t level = 0; level < LEVELS; ++level) {
        for (uint32_t k = 0; k < uint32_t{1} << (2 * level); ++k) {
            const double root = ring_angle(level, k) / 4.0;
            e->quarter[FIRST_RING[level] + k] = {unit(root), unit(2.0 * root), unit(3.0 * root)};
        }
    }
    for (uint32_t k = 0; k < HALVED_RINGS; ++k) {
        e->half[k] = unit(ring_angle(LEVELS - 1, k) / 2.0);
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
    while (count > 0) {
        const uint32_t yield = std::min(count, block_yield(LARGE, 1));
        if (yield <= block_yield(SMALL, SMALL_PARTS)) {
            run_small_block(engine, signal, yield, products);
        } else if (yield <= block_yield(MIDDLE, 1)) {
            run_block<MIDDLE>(engine, engine->middle_pattern, signal, yield, products);
        } else {
            run_block<LARGE>(engine, engine->large_pattern, signal, yield, products);
        }
        signal += yield;
        products += yield;
        count -= yield;
    }
}

} // namespace kosc
