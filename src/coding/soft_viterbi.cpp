#include "kosc/soft_viterbi.h"

#include <utility>

#include "coding/code_constants.h"
#include "coding/viterbi_rival.h"
#include "platform/owned.h"

using namespace kosc;

struct soft_viterbi_t {
    uint32_t tail;      // K - 1, the bits of a state
    uint32_t state_num; // 1 << tail
    uint32_t code_bits; // n
    uint32_t max_steps;
    uint8_t* patterns;  // owned; the code bits of every register, as a number with the first bit lowest
    double* metrics;    // owned; two rows of state_num
    uint8_t* survivors; // owned; max_steps rows of state_num: the lowest bit of the best predecessor
};

namespace {

constexpr uint32_t MIN_CONSTRAINT = 2;
constexpr uint32_t MAX_CONSTRAINT = 16;
constexpr uint32_t MAX_CODE_BITS = 8; // of one step: their combinations index a table
constexpr double UNREACHABLE = -1e300;

using decoder_ptr = owned<soft_viterbi_t, soft_viterbi_free>;

void fill_patterns(const conv_code_t& code, uint8_t* patterns)
{
    for (uint32_t r = 0; r < code.state_num; ++r) {
        patterns[r] = 0;
        for (uint32_t i = 0; i < code.polynomial_num; ++i) {
            patterns[r] = static_cast<uint8_t>(patterns[r] | code.output_table[r * code.polynomial_num + i] << i);
        }
    }
}

// How well each combination of a step's code bits agrees with the received values.
void score_patterns(const double* llr, uint32_t code_bits, double* scores)
{
    scores[0] = 0.0;
    for (uint32_t i = 0; i < code_bits; ++i) {
        const uint32_t known = uint32_t{1} << i;
        for (uint32_t p = 0; p < known; ++p) {
            scores[p + known] = scores[p] + llr[i];
            scores[p] -= llr[i];
        }
    }
}

void step(const soft_viterbi_t& d, const double* scores, const double* previous, double* current, uint8_t* survivors)
{
    const uint32_t half = d.state_num / 2;
    // States s and s + half have the same two predecessors and differ in the newest bit.
    for (uint32_t bit = 0; bit < 2; ++bit) {
        const uint8_t* const patterns = d.patterns + size_t{bit} * d.state_num;
        for (uint32_t s = 0; s < half; ++s) {
            const double even = previous[2 * s] + scores[patterns[2 * s]];
            const double odd = previous[2 * s + 1] + scores[patterns[2 * s + 1]];
            const bool take_odd = odd > even;
            current[bit * half + s] = take_odd ? odd : even;
            survivors[bit * half + s] = take_odd ? 1 : 0;
        }
    }
}

} // namespace

soft_viterbi_t* soft_viterbi_init(const conv_code_t* code, uint32_t max_steps)
{
    if (code == nullptr || code->constraint < MIN_CONSTRAINT || code->constraint > MAX_CONSTRAINT ||
        code->polynomial_num > MAX_CODE_BITS) {
        return nullptr;
    }
    decoder_ptr d{alloc_record<soft_viterbi_t>()};
    const uint32_t tail = code->constraint - 1;
    const uint64_t survivor_bytes = uint64_t{max_steps} << tail;
    if (!d || survivor_bytes > MAX_SURVIVOR_BYTES) {
        return nullptr;
    }
    d->tail = tail;
    d->state_num = uint32_t{1} << tail;
    d->code_bits = code->polynomial_num;
    d->max_steps = max_steps;
    d->patterns = alloc_array<uint8_t>(code->state_num);
    d->metrics = alloc_array<double>(size_t{2} * d->state_num);
    d->survivors = alloc_array<uint8_t>(survivor_bytes);
    if (d->patterns == nullptr || d->metrics == nullptr || d->survivors == nullptr) {
        return nullptr;
    }
    fill_patterns(*code, d->patterns);
    return d.release();
}

void soft_viterbi_free(soft_viterbi_t* decoder)
{
    if (decoder != nullptr) {
        std::free(decoder->patterns);
        std::free(decoder->metrics);
        std::free(decoder->survivors);
        std::free(decoder);
    }
}

bool soft_viterbi_decode(soft_viterbi_t* decoder, const double* llr, uint32_t step_num, uint8_t* bits)
{
    if (decoder == nullptr || llr == nullptr || bits == nullptr || step_num < decoder->tail ||
        step_num > decoder->max_steps) {
        return false;
    }
    const uint32_t states = decoder->state_num;
    double* previous = decoder->metrics;
    double* current = previous + states;
    for (uint32_t s = 0; s < states; ++s) {
        previous[s] = s == 0 ? 0.0 : UNREACHABLE;
    }
    for (uint32_t t = 0; t < step_num; ++t) {
        double scores[1 << MAX_CODE_BITS];
        score_patterns(llr + size_t{t} * decoder->code_bits, decoder->code_bits, scores);
        step(*decoder, scores, previous, current, decoder->survivors + size_t{t} * states);
        std::swap(previous, current);
    }
    uint32_t state = 0;
    for (uint32_t t = step_num; t-- > 0;) {
        bits[t] = static_cast<uint8_t>(state >> (decoder->tail - 1));
        const uint32_t oldest = decoder->survivors[size_t{t} * states + state];
        state = (state << 1 & (states - 1)) | oldest;
    }
    return true;
}

uint32_t kosc::find_rival(const soft_viterbi_t& decoder, const uint8_t* bits, uint32_t end, uint8_t* changes)
{
    const uint32_t tail = decoder.tail;
    const uint32_t states = decoder.state_num;
    const auto state_behind = [&](uint32_t t) { // of the decoded path
        uint32_t state = 0;
        for (uint32_t k = 0; k < tail && k <= t; ++k) {
            state |= uint32_t{bits[t - k]} << (tail - 1 - k);
        }
        return state;
    };
    if (end < tail) {
        return NO_RIVAL;
    }
    uint32_t state = (state_behind(end) << 1 & (states - 1)) | (bits[end - tail] ^ 1U);
    changes[end] = 0;
    for (uint32_t t = end; t-- > 0;) {
        changes[t] = static_cast<uint8_t>((state >> (tail - 1)) ^ bits[t]);
        state = (state << 1 & (states - 1)) | decoder.survivors[size_t{t} * states + state];
        if (state == (t == 0 ? 0 : state_behind(t - 1))) {
            return t;
        }
    }
    return NO_RIVAL;
}
