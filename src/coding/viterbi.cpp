#include "kosc/conv_code.h"

#include <utility>

#include "coding/code_constants.h"
#include "coding/viterbi64.h"
#include "kosc/puncture.h"
#include "log/log_macros.h"
#include "platform/owned.h"

using namespace kosc;

namespace {

constexpr uint32_t UNREACHABLE = UINT32_MAX;
constexpr conv_data_t FAILED = {nullptr, 0};

struct trellis {
    const conv_code_t* code;
    uint32_t state_mask;  // of a predecessor, less its oldest bit
    uint32_t input_shift; // of the newest input bit within a slot

    // Metric of reaching `slot` from `from`, whose own metric is `metric`.
    uint32_t extend(uint32_t metric, uint32_t from, uint32_t slot, const uint8_t* received) const
    {
        if (metric == UNREACHABLE) {
            return UNREACHABLE;
        }
        const uint32_t input = slot >> input_shift & 1;
        const size_t shift_register = from | input << (input_shift + 1);
        const uint32_t n = code->polynomial_num;
        return metric + branch_metric(received, code->output_table + shift_register * n, n);
    }

    // One step for every slot: its best metric and the predecessor that gave it.
    void step(const uint8_t* received, const uint32_t* previous, bool upper_half_open, uint32_t* current,
              uint32_t* survivors) const
    {
        for (uint32_t slot = 0; slot < code->state_num; ++slot) {
            if (!upper_half_open && slot >> (input_shift + 1) != 0) {
                current[slot] = UNREACHABLE;
                survivors[slot] = 0;
                continue;
            }
            const uint32_t even = (slot & state_mask) << 1;
            const uint32_t odd = even | 1;
            const uint32_t even_metric = extend(previous[even], even, slot, received);
            const uint32_t odd_metric = extend(previous[odd], odd, slot, received);
            const bool take_odd = even_metric > odd_metric; // on equal metrics the even predecessor stays
            current[slot] = take_odd ? odd_metric : even_metric;
            survivors[slot] = take_odd ? odd : even;
        }
    }
};

// The lowest slot among those with the smallest metric.
uint32_t best_slot(const uint32_t* metrics, uint32_t count)
{
    uint32_t best = 0;
    for (uint32_t slot = 1; slot < count; ++slot) {
        best = metrics[slot] < metrics[best] ? slot : best;
    }
    return best;
}

// Any code and any received values, slot by slot.
conv_data_t decode_slots(const conv_code_t* code, const uint8_t* coded, uint32_t step_num, bool terminated)
{
    const uint32_t slots = code->state_num;
    const uint32_t input_shift = code->constraint - 2;
    const trellis paths{code, (uint32_t{1} << input_shift) - 1, input_shift};

    const uint64_t survivor_count = uint64_t{step_num} * slots;
    const bool can_hold = survivor_count <= MAX_SURVIVOR_BYTES / sizeof(uint32_t);
    const block_ptr<uint32_t> survivor_table{can_hold ? alloc_array<uint32_t>(survivor_count) : nullptr};
    const block_ptr<uint32_t> previous_path_metrics{alloc_array<uint32_t>(slots)};
    KOSC_RETURN_IF(!survivor_table || !previous_path_metrics, FAILED, "failt to alloc memory %d %d.", step_num, slots);
    const block_ptr<uint32_t> current_path_metrics{alloc_array<uint32_t>(slots)};
    KOSC_RETURN_IF(!current_path_metrics, FAILED, "failt to alloc current_path_metrics.");
    block_ptr<uint8_t> decoded{alloc_array<uint8_t>(step_num)};
    KOSC_RETURN_IF(!decoded, FAILED, "failt to alloc decoded data.");

    uint32_t* previous = previous_path_metrics.get();
    uint32_t* current = current_path_metrics.get();
    for (uint32_t slot = 0; slot < slots; ++slot) {
        previous[slot] = slot == 0 ? 0 : UNREACHABLE;
    }
    const uint32_t tail = terminated ? code->constraint - 1 : 0;
    for (uint32_t t = 0; t < step_num; ++t) {
        paths.step(coded + size_t{t} * code->polynomial_num, previous, step_num - t > tail, current,
                   &survivor_table[size_t{t} * slots]);
        std::swap(previous, current);
    }

    uint32_t slot = best_slot(previous, slots);
    for (uint32_t t = step_num; t-- > 0;) {
        decoded[t] = static_cast<uint8_t>(slot >> input_shift);
        slot = survivor_table[size_t{t} * slots + slot];
    }
    return {decoded.release(), step_num};
}

// The usual code, with received values that its table knows. Termination changes nothing in the output.
conv_data_t decode_64_states(const conv_code_t* code, const uint8_t* coded, uint32_t step_num)
{
    constexpr uint64_t STATES = 64;
    const uint64_t survivor_count = step_num * STATES;
    const bool can_hold = survivor_count <= MAX_SURVIVOR_BYTES;
    const block_ptr<int8_t> decisions{can_hold ? alloc_array<int8_t>(survivor_count) : nullptr};
    KOSC_RETURN_IF(!decisions, FAILED, "failt to alloc memory %d %d.", step_num, code->state_num);
    block_ptr<uint8_t> decoded{alloc_array<uint8_t>(step_num)};
    KOSC_RETURN_IF(!decoded, FAILED, "failt to alloc decoded data.");
    viterbi64_decode(code->viterbi64, coded, step_num, decisions.get(), decoded.get());
    return {decoded.release(), step_num};
}

} // namespace

uint32_t branch_metric(const uint8_t* received, const uint8_t* expected, uint32_t count)
{
    uint32_t metric = 0;
    for (uint32_t i = 0; i < count; ++i) {
        const uint32_t r = received[i];
        const uint32_t e = expected[i];
        metric += r == HOLE_MARKER || e == HOLE_MARKER ? 0 : r ^ e;
    }
    return metric;
}

conv_data_t viterbi_decode(const conv_code_t* code, const uint8_t* coded, uint32_t step_num, bool terminated)
{
    KOSC_RETURN_IF(code->constraint < 2, FAILED, "constraint %u is too short to decode", code->constraint);
    if (code->viterbi64 != nullptr && viterbi64_suits(coded, size_t{step_num} * code->polynomial_num)) {
        return decode_64_states(code, coded, step_num);
    }
    return decode_slots(code, coded, step_num, terminated);
}
