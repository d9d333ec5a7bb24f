#include "coding/viterbi64.h"

#include <algorithm>

#include "platform/owned.h"

using namespace kosc;

namespace {

constexpr uint32_t CONSTRAINT = 7;
constexpr uint32_t STATES = 64;
constexpr uint32_t HALF = STATES / 2;
constexpr uint32_t MAX_POLYNOMIALS = 3;
constexpr uint32_t SYMBOLS = 3; // 0, 1 and the hole
constexpr uint32_t GROUPS = SYMBOLS * SYMBOLS * SYMBOLS;
constexpr uint8_t RECEIVED[SYMBOLS] = {0, 1, 0xFF};

// Above every metric that a state can have within the first steps, after which all states have been reached.
constexpr uint8_t UNREACHED = 64;

// Metrics of states that have been reached lie within 6 steps of each other, 18 at most, so bytes hold them as long as
// their common growth is taken out now and then: at most 3 a step.
constexpr uint32_t STEPS_BETWEEN_RENORMALISATIONS = 32;

// Index of a received value: its position in RECEIVED.
uint32_t symbol(uint8_t received) { return received > 1 ? 2 : received; }

// Branch metrics of a group, by input bit and by the oldest bit of the predecessor; element k belongs to the
// predecessors 2k and 2k + 1.
struct branch_row {
    uint8_t even[2][HALF];
    uint8_t odd[2][HALF];
};

} // namespace

struct viterbi64_table {
    uint32_t polynomial_num;
    branch_row rows[GROUPS];
};

namespace {

void fill_row(const conv_code_t* code, const uint8_t* received, branch_row* row)
{
    const uint32_t n = code->polynomial_num;
    for (uint32_t input = 0; input < 2; ++input) {
        for (uint32_t k = 0; k < HALF; ++k) {
            const uint8_t* const expected = code->output_table + size_t{input << (CONSTRAINT - 1) | 2 * k} * n;
            row->even[input][k] = static_cast<uint8_t>(branch_metric(received, expected, n));
            row->odd[input][k] = static_cast<uint8_t>(branch_metric(received, expected + n, n));
        }
    }
}

// One step for all states: the newest input bit is a state's highest, and the predecessors of states k and k + HALF are
// 2k and 2k + 1. The odd one is taken only when it is strictly better.
void run_step(const branch_row* __restrict row, const uint8_t* __restrict previous, uint8_t* __restrict current,
              uint8_t* __restrict decisions)
{
    uint8_t even[HALF];
    uint8_t odd[HALF];
    for (uint32_t k = 0; k < HALF; ++k) {
        even[k] = previous[2 * k];
        odd[k] = previous[2 * k + 1];
    }
    for (uint32_t input = 0; input < 2; ++input) {
        for (uint32_t k = 0; k < HALF; ++k) {
            const auto from_even = static_cast<uint8_t>(even[k] + row->even[input][k]);
            const auto from_odd = static_cast<uint8_t>(odd[k] + row->odd[input][k]);
            const uint8_t best = from_odd < from_even ? from_odd : from_even;
            current[HALF * input + k] = best;
            decisions[HALF * input + k] = best == from_even ? 0 : 1;
        }
    }
}

void renormalise(uint8_t* metrics)
{
    const uint8_t lowest = *std::min_element(metrics, metrics + STATES);
    for (uint32_t state = 0; state < STATES; ++state) {
        metrics[state] = static_cast<uint8_t>(metrics[state] - lowest);
    }
}

} // namespace

namespace kosc {

viterbi64_table* viterbi64_init(const conv_code_t* code)
{
    const uint32_t n = code->polynomial_num;
    if (code->constraint != CONSTRAINT || n > MAX_POLYNOMIALS) {
        return nullptr;
    }
    auto* const table = alloc_record<viterbi64_table>();
    for (uint32_t group = 0; table != nullptr && group < GROUPS; ++group) {
        const uint8_t received[MAX_POLYNOMIALS] = {RECEIVED[group % SYMBOLS], RECEIVED[group / SYMBOLS % SYMBOLS],
                                                   RECEIVED[group / SYMBOLS / SYMBOLS]};
        table->polynomial_num = n;
        fill_row(code, received, &table->rows[group]);
    }
    return table;
}

void viterbi64_free(viterbi64_table* table) { std::free(table); }

bool viterbi64_suits(const uint8_t* coded, size_t count)
{
    uint32_t strange = 0;
    for (size_t i = 0; i < count; ++i) {
        // 0, 1 and 0xFF become 1, 2 and 0.
        strange |= static_cast<uint8_t>(coded[i] + 1) > 2 ? 1 : 0;
    }
    return strange == 0;
}

void viterbi64_decode(const viterbi64_table* table, const uint8_t* coded, uint32_t step_num, uint8_t* decisions,
                      uint8_t* decoded)
{
    const uint32_t n = table->polynomial_num;
    uint8_t metrics[2][STATES];
    std::fill_n(metrics[0], STATES, UNREACHED);
    metrics[0][0] = 0;
    for (uint32_t t = 0; t < step_num; ++t) {
        uint32_t group = 0;
        for (uint32_t i = n; i-- > 0;) {
            group = group * SYMBOLS + symbol(coded[size_t{t} * n + i]);
        }
        run_step(&table->rows[group], metrics[t % 2], metrics[(t + 1) % 2], decisions + size_t{t} * STATES);
        if (t % STEPS_BETWEEN_RENORMALISATIONS == STEPS_BETWEEN_RENORMALISATIONS - 1) {
            renormalise(metrics[(t + 1) % 2]);
        }
    }
    const uint8_t* const last = metrics[step_num % 2];
    auto state = static_cast<uint32_t>(std::min_element(last, last + STATES) - last);
    for (uint32_t t = step_num; t-- > 0;) {
        decoded[t] = static_cast<uint8_t>(state / HALF);
        state = state % HALF * 2 + decisions[size_t{t} * STATES + state];
    }
}

} // namespace kosc
