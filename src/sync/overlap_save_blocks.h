// Inside of overlap_save.h: the engine's tables, and its transforms, which are compiled for registers of 16 bytes and,
// where processors may have them, for those of 32; the two give the same numbers.
#ifndef KOSC_SYNC_OVERLAP_SAVE_BLOCKS_H
#define KOSC_SYNC_OVERLAP_SAVE_BLOCKS_H

#include "kosc/vector.h"
#include "sync/overlap_save.h"

namespace kosc {

// Complex numbers in a block. A "ring" of M numbers is a polynomial of degree below M, taken modulo x^M - c; its
// residues modulo the four factors x^(M/4) - i^k*c^(1/4) are four smaller rings. A block is split into rings of LEAF
// numbers: quartered four times, after which a large one is quartered and a middle one halved once more.
constexpr uint32_t SMALL = 512;
constexpr uint32_t MIDDLE = 1024;
constexpr uint32_t LARGE = 2048;
constexpr uint32_t LEAF = 2;

// A small block takes the pattern in two parts, which cost less than one middle block.
constexpr uint32_t SMALL_PARTS = 2;

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

// overlap_save_run() in registers that hold two numbers, and in those that hold four.
void run_blocks_by_two(overlap_save* engine, const double* signal, uint32_t count, double* products);
void run_blocks_by_four(overlap_save* engine, const double* signal, uint32_t count, double* products);

// From `count` samples, zeros behind them, to the residues in the leaves of a block of `size` numbers.
template <uint32_t size> void split_samples(overlap_save* engine, const double* samples, uint32_t count);

} // namespace kosc

struct overlap_save {
    kosc::quarter_factor quarter[kosc::QUARTERED_RINGS];
    kom_complex half[kosc::HALVED_RINGS];
    kosc::leaf_pattern small_pattern[kosc::SMALL_PARTS * kosc::SMALL / kosc::LEAF];
    kosc::leaf_pattern middle_pattern[kosc::MIDDLE / kosc::LEAF];
    kosc::leaf_pattern large_pattern[kosc::LARGE / kosc::LEAF];
    double re[kosc::LARGE];
    double im[kosc::LARGE];
    double sum_re[kosc::SMALL];
    double sum_im[kosc::SMALL];
};

#endif
