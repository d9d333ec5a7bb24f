#include "sync/overlap_save_blocks.h"

#include "math/simd.h"
#include "platform/bounded.h"

using namespace kosc;

namespace {

// Products that a block yields when the pattern is taken in so many parts.
constexpr uint32_t block_yield(uint32_t size, uint32_t parts) { return 2 * size - PATTERN_LEN / parts + 1; }

// A ring of `parts` parts of m complex numbers, processed a register at a time. Where a part is shorter than a
// register, a register holds the same part of adjacent rings.
template <uint32_t m, uint32_t parts> struct ring {
    static constexpr bool IS_SHORT = m < SIMD_LANES;
    static constexpr uint32_t AT_ONCE = IS_SHORT ? SIMD_LANES / m : 1; // rings in a register
    static constexpr size_t LENGTH = size_t{parts} * m;
    static_assert(!IS_SHORT || m == 2, "runs of two");

    double* re;
    double* im;

    simd_complex load(uint32_t part, uint32_t j) const
    {
        const size_t at = part * m + j;
        return IS_SHORT ? simd_complex{load_runs(re + at, LENGTH), load_runs(im + at, LENGTH)}
                        : load_complex(re + at, im + at);
    }

    void store(uint32_t part, uint32_t j, simd_complex z) const
    {
        const size_t at = part * m + j;
        if (IS_SHORT) {
            store_runs(re + at, LENGTH, z.re);
            store_runs(im + at, LENGTH, z.im);
        } else {
            store_complex(re + at, im + at, z);
        }
    }

    // A ring's factor, or those of the rings in a register, `distance` doubles apart.
    static simd_complex factor(const kom_complex& f, size_t distance)
    {
        return IS_SHORT ? simd_complex{broadcast_runs(&f.re, distance), broadcast_runs(&f.im, distance)} : broadcast(f);
    }
};

constexpr size_t QUARTER_DISTANCE = sizeof(quarter_factor) / sizeof(double);
constexpr size_t HALF_DISTANCE = sizeof(kom_complex) / sizeof(double);

// Residues of a ring of 4m numbers in its four parts, in place.
template <uint32_t m> inline void quarter_ring(ring<m, 4> r, const quarter_factor& f)
{
    for (uint32_t j = 0; j < m; j += SIMD_LANES) {
        const simd_complex a = r.load(0, j);
        const simd_complex b1 = r.load(1, j) * r.factor(f.r1, QUARTER_DISTANCE);
        const simd_complex b2 = r.load(2, j) * r.factor(f.r2, QUARTER_DISTANCE);
        const simd_complex b3 = r.load(3, j) * r.factor(f.r3, QUARTER_DISTANCE);
        const simd_complex even_sum = a + b2;
        const simd_complex even_difference = a - b2;
        const simd_complex odd_sum = b1 + b3;
        const simd_complex odd_difference = times_i(b1 - b3);
        r.store(0, j, even_sum + odd_sum);
        r.store(1, j, even_difference + odd_difference);
        r.store(2, j, even_sum - odd_sum);
        r.store(3, j, even_difference - odd_difference);
    }
}

// Undoes quarter_ring(), up to a factor of 4.
template <uint32_t m> inline void join_quarters(ring<m, 4> r, const quarter_factor& f)
{
    for (uint32_t j = 0; j < m; j += SIMD_LANES) {
        const simd_complex o0 = r.load(0, j);
        const simd_complex o1 = r.load(1, j);
        const simd_complex o2 = r.load(2, j);
        const simd_complex o3 = r.load(3, j);
        const simd_complex even_sum = o0 + o2;
        const simd_complex even_difference = o0 - o2;
        const simd_complex odd_sum = o1 + o3;
        const simd_complex odd_difference = times_i(o3 - o1);
        r.store(0, j, even_sum + odd_sum);
        r.store(1, j, times_conjugate(even_difference + odd_difference, r.factor(f.r1, QUARTER_DISTANCE)));
        r.store(2, j, times_conjugate(even_sum - odd_sum, r.factor(f.r2, QUARTER_DISTANCE)));
        r.store(3, j, times_conjugate(even_difference - odd_difference, r.factor(f.r3, QUARTER_DISTANCE)));
    }
}

// Residues of a ring of two leaves, in place.
inline void halve_ring(ring<LEAF, 2> r, const kom_complex& f)
{
    const simd_complex a = r.load(0, 0);
    const simd_complex b = r.load(1, 0) * r.factor(f, HALF_DISTANCE);
    r.store(0, 0, a + b);
    r.store(1, 0, a - b);
}

// Undoes halve_ring(), up to a factor of 2.
inline void join_halves(ring<LEAF, 2> r, const kom_complex& f)
{
    const simd_complex a = r.load(0, 0);
    const simd_complex b = r.load(1, 0);
    r.store(0, 0, a + b);
    r.store(1, 0, times_conjugate(a - b, r.factor(f, HALF_DISTANCE)));
}

// All rings of one level, of 4m numbers each.
template <uint32_t level, uint32_t m> void quarter_level(overlap_save* e)
{
    constexpr uint32_t COUNT = 1 << (2 * level);
    for (uint32_t k = 0; k < COUNT; k += ring<m, 4>::AT_ONCE) {
        quarter_ring<m>({e->re + 4 * m * k, e->im + 4 * m * k}, e->quarter[FIRST_RING[level] + k]);
    }
}

template <uint32_t level, uint32_t m> void join_level(overlap_save* e)
{
    constexpr uint32_t COUNT = 1 << (2 * level);
    for (uint32_t k = 0; k < COUNT; k += ring<m, 4>::AT_ONCE) {
        join_quarters<m>({e->re + 4 * m * k, e->im + 4 * m * k}, e->quarter[FIRST_RING[level] + k]);
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
        for (uint32_t k = 0; k < HALVED_RINGS; k += ring<LEAF, 2>::AT_ONCE) {
            halve_ring({e->re + 2 * LEAF * k, e->im + 2 * LEAF * k}, e->half[k]);
        }
    }
}

// The inverse of split(), up to a factor of the number of leaves.
template <uint32_t size> void join(overlap_save* e)
{
    if (size == LARGE) {
        join_level<4, LEAF>(e);
    } else if (size == MIDDLE) {
        for (uint32_t k = 0; k < HALVED_RINGS; k += ring<LEAF, 2>::AT_ONCE) {
            join_halves({e->re + 2 * LEAF * k, e->im + 2 * LEAF * k}, e->half[k]);
        }
    }
    join_level<3, size / 256>(e);
    join_level<2, size / 64>(e);
    join_level<1, size / 16>(e);
    join_level<0, size / 4>(e);
}

constexpr uint32_t LEAVES_AT_ONCE = SIMD_LANES / LEAF;
constexpr size_t LEAF_DISTANCE = sizeof(leaf_pattern) / sizeof(double);

// The products of the numbers (re, im) of leaves and the pattern's.
inline simd_complex leaf_products(const double* re, const double* im, const leaf_pattern* g)
{
    const simd_complex x = load_complex(re, im);
    const simd_complex x0 = {first_of_runs(x.re), first_of_runs(x.im)};
    const simd_complex x1 = {second_of_runs(x.re), second_of_runs(x.im)};
    return x0 * simd_complex{load_runs(g->first_re, LEAF_DISTANCE), load_runs(g->first_im, LEAF_DISTANCE)} +
           x1 * simd_complex{load_runs(g->second_re, LEAF_DISTANCE), load_runs(g->second_im, LEAF_DISTANCE)};
}

void multiply_leaves(overlap_save* e, const leaf_pattern* pattern, uint32_t count)
{
    for (uint32_t k = 0; k < count; k += LEAVES_AT_ONCE) {
        double* const re = e->re + LEAF * k;
        double* const im = e->im + LEAF * k;
        store_complex(re, im, leaf_products(re, im, pattern + k));
    }
}

// Own forms of std::min, std::fill and std::copy: of an inline function that was compiled both with and without AVX2,
// the linker keeps either copy for all files, and an older processor would meet its instructions.
uint32_t smaller(uint32_t a, uint32_t b) { return a < b ? a : b; }

void clear(double* data, uint32_t count) { bounded_set(data, count * sizeof(double), 0, count * sizeof(double)); }

void copy(const double* from, uint32_t count, double* to)
{
    bounded_copy(to, count * sizeof(double), from, count * sizeof(double));
}

// Lays a block of up to 2 * size samples out as complex numbers, zeros behind it.
template <uint32_t size> void load_block(overlap_save* e, const double* samples, uint32_t count)
{
    const uint32_t low = smaller(count, size);
    const uint32_t high = count - low;
    copy(samples, low, e->re);
    clear(e->re + low, size - low);
    copy(samples + low, high, e->im);
    clear(e->im + high, size - high);
}

// Copies the products out of a block. A part of the pattern lies reversed in its block, so that the product with the
// samples from p on ends up `part_len` - 1 behind p.
template <uint32_t size> void take_products(const overlap_save* e, uint32_t part_len, uint32_t count, double* products)
{
    const uint32_t low = smaller(count, size - (part_len - 1));
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

// Each part of the pattern is multiplied with the samples that lie as far into the block as it lies into the pattern;
// the products are added as residues, so that one inverse serves both.
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
    for (uint32_t k = 0; k < LEAVES; k += LEAVES_AT_ONCE) {
        double* const re = e->re + LEAF * k;
        double* const im = e->im + LEAF * k;
        store_complex(re, im,
                      load_complex(e->sum_re + LEAF * k, e->sum_im + LEAF * k) +
                          leaf_products(re, im, e->small_pattern + LEAVES + k));
    }
    join<SMALL>(e);
    take_products<SMALL>(e, PART_LEN, count, products);
}

void run_blocks(overlap_save* e, const double* signal, uint32_t count, double* products)
{
    while (count > 0) {
        const uint32_t yield = smaller(count, block_yield(LARGE, 1));
        if (yield <= block_yield(SMALL, SMALL_PARTS)) {
            run_small_block(e, signal, yield, products);
        } else if (yield <= block_yield(MIDDLE, 1)) {
            run_block<MIDDLE>(e, e->middle_pattern, signal, yield, products);
        } else {
            run_block<LARGE>(e, e->large_pattern, signal, yield, products);
        }
        signal += yield;
        products += yield;
        count -= yield;
    }
}

} // namespace

#if KOSC_SIMD_BYTES == 16
void kosc::run_blocks_by_two(overlap_save* engine, const double* signal, uint32_t count, double* products)
{
    run_blocks(engine, signal, count, products);
}

template <uint32_t size> void kosc::split_samples(overlap_save* engine, const double* samples, uint32_t count)
{
    load_block<size>(engine, samples, count);
    split<size>(engine);
}

template void kosc::split_samples<SMALL>(overlap_save*, const double*, uint32_t);
template void kosc::split_samples<MIDDLE>(overlap_save*, const double*, uint32_t);
template void kosc::split_samples<LARGE>(overlap_save*, const double*, uint32_t);
#else
void kosc::run_blocks_by_four(overlap_save* engine, const double* signal, uint32_t count, double* products)
{
    run_blocks(engine, signal, count, products);
}
#endif
