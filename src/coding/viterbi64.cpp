#include "coding/viterbi64.h"

#include <algorithm>
#include <cstring>

#include "coding/code_constants.h"
#include "math/shuffle.h"
#include "platform/owned.h"
#include "platform/unroll.h"

using namespace kosc;

namespace {

constexpr uint32_t CONSTRAINT = 7;
constexpr uint32_t STATES = 64;
constexpr uint32_t HALF = STATES / 2;
constexpr uint32_t MAX_POLYNOMIALS = 3;

// Add, compare and select for all 64 states at once: Viterbi 1967, "Error bounds for convolutional codes and an
// asymptotically optimum decoding algorithm"; the metrics of 16 states lie in the bytes of one register.
//
// The branch metrics of a step depend on its received values alone, so that they are tabulated. The two low bits of a
// received value are enough to tell 0, 1 and the punctured bit (0xFF) apart; those of all values of a step, the first
// value lowest, are the index of a row of the table.
constexpr uint32_t SYMBOL_BITS = 2;
constexpr uint32_t SYMBOL_MASK = 3;
constexpr uint32_t GROUPS = 1 << (SYMBOL_BITS * MAX_POLYNOMIALS);
constexpr uint8_t RECEIVED[SYMBOL_MASK + 1] = {0, 1, 0, HOLE_MARKER}; // 2 never occurs

// The initial metric of all states but 0, in which the encoder starts. It exceeds the 6 * 3 that a path from state 0
// can cost in the 6 steps after which every state has such a path, so that no path from another state survives.
constexpr uint8_t UNREACHED = 64;

// Every state is reached from every other in 6 steps, which cost at most 3 each: the metrics of all states lie within
// 18 of each other. They grow by at most 3 a step, 96 in 32 steps, so that bytes hold them if what all have in common
// is subtracted that often. Differences, which decide, stay.
constexpr uint8_t SPREAD = 18;
constexpr uint32_t STEPS_BETWEEN_RENORMALISATIONS = 32;

// The metrics of 16 states in one machine register.
typedef uint8_t metric_vector __attribute__((vector_size(16)));
constexpr uint32_t LANES = sizeof(metric_vector);
constexpr uint32_t VECTORS = STATES / LANES;

struct state_metrics {
    metric_vector v[VECTORS];
};

// The branch metrics of a step with the same received values: how many of them differ from what the encoder puts out on
// that branch, punctured ones not counted. By input bit; element k of `even` belongs to the predecessor 2k, of `odd` to
// 2k + 1.
struct branch_row {
    metric_vector even[2][VECTORS / 2];
    metric_vector odd[2][VECTORS / 2];
};

} // namespace

struct viterbi64_table {
    branch_row rows[GROUPS];
    uint32_t polynomial_num;
};

namespace {

void fill_row(const conv_code_t* code, const uint8_t* received, branch_row* row)
{
    const uint32_t n = code->polynomial_num;
    for (uint32_t input = 0; input < 2; ++input) {
        for (uint32_t k = 0; k < HALF; ++k) {
            const uint8_t* const expected = code->output_table + size_t{input << (CONSTRAINT - 1) | 2 * k} * n;
            row->even[input][k / LANES][k % LANES] = static_cast<uint8_t>(branch_metric(received, expected, n));
            row->odd[input][k / LANES][k % LANES] = static_cast<uint8_t>(branch_metric(received, expected + n, n));
        }
    }
}

metric_vector even_lanes(metric_vector a, metric_vector b)
{
    return shuffle<0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24, 26, 28, 30>(a, b);
}

metric_vector odd_lanes(metric_vector a, metric_vector b)
{
    return shuffle<1, 3, 5, 7, 9, 11, 13, 15, 17, 19, 21, 23, 25, 27, 29, 31>(a, b);
}

// One step for all states: the newest input bit is a state's highest, and the predecessors of states k and k + HALF are
// 2k and 2k + 1. The odd one is taken only when it is strictly better; the decision is then 0, else -1.
inline state_metrics run_step(const branch_row& row, const state_metrics& previous, int8_t* decisions)
{
    state_metrics current;
    KOSC_UNROLL
    for (uint32_t h = 0; h < VECTORS / 2; ++h) {
        const metric_vector even = even_lanes(previous.v[2 * h], previous.v[2 * h + 1]);
        const metric_vector odd = odd_lanes(previous.v[2 * h], previous.v[2 * h + 1]);
        KOSC_UNROLL
        for (uint32_t input = 0; input < 2; ++input) {
            const metric_vector from_even = even + row.even[input][h];
            const metric_vector from_odd = odd + row.odd[input][h];
            const metric_vector best = from_odd < from_even ? from_odd : from_even;
            const auto take_even = best == from_even;
            const uint32_t to = VECTORS / 2 * input + h;
            current.v[to] = best;
            std::memcpy(decisions + LANES * to, &take_even, sizeof(take_even));
        }
    }
    return current;
}

// The state with the smallest metric, the lowest of several.
uint32_t best_state(const state_metrics& metrics)
{
    uint8_t all[STATES];
    std::memcpy(all, &metrics, sizeof(all));
    return static_cast<uint32_t>(std::min_element(all, all + STATES) - all);
}

// Subtracts what every metric has at least: that of state 0 less the spread.
inline void renormalise(state_metrics* metrics)
{
    const uint8_t one = metrics->v[0][0];
    const uint8_t common = one > SPREAD ? static_cast<uint8_t>(one - SPREAD) : uint8_t{0};
    KOSC_UNROLL
    for (metric_vector& v : metrics->v) {
        v -= common;
    }
}

// All steps with n received values each, from state 0.
template <uint32_t n>
state_metrics run_steps(const branch_row* rows, const uint8_t* coded, uint32_t step_num, int8_t* decisions)
{
    uint8_t start[STATES];
    std::fill_n(start, STATES, UNREACHED);
    start[0] = 0;
    state_metrics metrics;
    std::memcpy(&metrics, start, sizeof(metrics));
    for (uint32_t t = 0; t < step_num; ++t) {
        uint32_t group = 0;
        for (uint32_t i = 0; i < n; ++i) {
            group |= (coded[size_t{t} * n + i] & SYMBOL_MASK) << (SYMBOL_BITS * i);
        }
        metrics = run_step(rows[group], metrics, decisions + size_t{t} * STATES);
        if (t % STEPS_BETWEEN_RENORMALISATIONS == STEPS_BETWEEN_RENORMALISATIONS - 1) {
            renormalise(&metrics);
        }
    }
    return metrics;
}

} // namespace

namespace kosc {

viterbi64_table* viterbi64_init(const conv_code_t* code)
{
    const uint32_t n = code->polynomial_num;
    if (code->constraint != CONSTRAINT || n > MAX_POLYNOMIALS) {
        return nullptr;
    }
    auto* const table = alloc_aligned<viterbi64_table>();
    for (uint32_t group = 0; table != nullptr && group < GROUPS; ++group) {
        uint8_t received[MAX_POLYNOMIALS];
        for (uint32_t i = 0; i < MAX_POLYNOMIALS; ++i) {
            received[i] = RECEIVED[group >> (SYMBOL_BITS * i) & SYMBOL_MASK];
        }
        table->polynomial_num = n;
        fill_row(code, received, &table->rows[group]);
    }
    return table;
}

void viterbi64_free(viterbi64_table* table) { free_aligned(table); }

bool viterbi64_suits(const uint8_t* coded, size_t count)
{
    uint32_t unsuitable = 0;
    for (size_t i = 0; i < count; ++i) {
        // 0, 1 and 0xFF become 1, 2 and 0.
        unsuitable |= static_cast<uint8_t>(coded[i] + 1) > 2 ? 1 : 0;
    }
    return unsuitable == 0;
}

void viterbi64_decode(const viterbi64_table* table, const uint8_t* coded, uint32_t step_num, int8_t* decisions,
                      uint8_t* decoded)
{
    constexpr decltype(&run_steps<1>) RUN[MAX_POLYNOMIALS] = {run_steps<1>, run_steps<2>, run_steps<3>};
    uint32_t state = best_state(RUN[table->polynomial_num - 1](table->rows, coded, step_num, decisions));
    for (uint32_t t = step_num; t-- > 0;) {
        decoded[t] = static_cast<uint8_t>(state / HALF);
        state = state % HALF * 2 + 1 + static_cast<uint32_t>(int32_t{decisions[size_t{t} * STATES + state]});
    }
}

} // namespace kosc
