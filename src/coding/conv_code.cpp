#include "kosc/conv_code.h"

#include <climits>

#include "coding/conv_steps.h"
#include "coding/viterbi64.h"
#include "log/log_macros.h"
#include "platform/owned.h"

using namespace kosc;

namespace {

// The table has 2^K rows: beyond this nobody could run the code, and the memory would only be overcommitted.
constexpr uint32_t MAX_CONSTRAINT = 24;
constexpr uint64_t MAX_TABLE_BYTES = uint64_t{1} << 28;
constexpr uint32_t SHIFT_MASK = 31; // shift counts are taken modulo 32

using code_ptr = owned<conv_code_t, conv_code_release>;

uint8_t parity(uint32_t bits)
{
    for (uint32_t half = 16; half != 0; half /= 2) {
        bits ^= bits >> half;
    }
    return bits & 1;
}

// The first polynomial that is zero or has a tap outside the register; null when all are fine.
const uint32_t* find_invalid(const uint32_t* polynomials, uint32_t count, uint32_t constraint)
{
    const uint32_t limit = uint32_t{1} << (constraint & SHIFT_MASK);
    for (uint32_t i = 0; i < count; ++i) {
        if (polynomials[i] == 0 || polynomials[i] >= limit) {
            return &polynomials[i];
        }
    }
    return nullptr;
}

uint8_t* make_output_table(const conv_code_t& code)
{
    const uint64_t size = uint64_t{code.state_num} * code.polynomial_num;
    uint8_t* const table = size <= MAX_TABLE_BYTES ? alloc_array<uint8_t>(size) : nullptr;
    for (uint32_t i = 0; table != nullptr && i < code.polynomial_num; ++i) {
        const uint32_t taps = reverse_bits(static_cast<uint8_t>(code.polynomials[i]), code.constraint);
        for (uint32_t r = 0; r < code.state_num; ++r) {
            table[size_t{r} * code.polynomial_num + i] = parity(r & taps);
        }
    }
    return table;
}

} // namespace

conv_code_t* conv_code_init(uint32_t constraint, const uint32_t* polynomials, uint32_t polynomial_num)
{
    const uint32_t is_set = polynomials != nullptr ? 1 : 0;
    KOSC_RETURN_IF(constraint == 0 || is_set == 0 || polynomial_num == 0, nullptr, "Invalid para %u, %u, %u",
                   constraint, is_set, polynomial_num);
    const uint32_t* const invalid = find_invalid(polynomials, polynomial_num, constraint);
    KOSC_RETURN_IF(invalid != nullptr, nullptr, "Invalid polynomial %u", *invalid);

    code_ptr code{alloc_record<conv_code_t>()};
    KOSC_RETURN_IF(!code, nullptr, "malloc conv_code_t failed.");
    code->polynomials = alloc_array<uint32_t>(polynomial_num);
    const size_t polynomial_bytes = size_t{polynomial_num} * sizeof(uint32_t);
    KOSC_RETURN_IF(!bounded_copy(code->polynomials, polynomial_bytes, polynomials, polynomial_bytes), nullptr,
                   "malloc polynomials failed.");
    code->constraint = constraint;
    code->polynomial_num = polynomial_num;
    code->state_num = uint32_t{1} << (constraint & SHIFT_MASK);
    code->output_table = constraint <= MAX_CONSTRAINT ? make_output_table(*code) : nullptr;
    KOSC_RETURN_IF(code->output_table == nullptr, nullptr, "fail to malloc output.");
    code->viterbi64 = viterbi64_init(code.get()); // without it decoding is slower, not wrong
    return code.release();
}

void conv_code_release(conv_code_t* code)
{
    if (code != nullptr) {
        std::free(code->polynomials);
        std::free(code->output_table);
        viterbi64_free(code->viterbi64);
        std::free(code);
    }
}

uint32_t conv_code_encode_length(const conv_code_t* code, uint32_t bit_num)
{
    return code != nullptr && bit_num != 0 ? (bit_num + code->constraint - 1) * code->polynomial_num : 0;
}

conv_data_t conv_code_encode(const conv_code_t* code, const uint8_t* bits, uint32_t bit_num)
{
    if (code == nullptr || bits == nullptr || bit_num == 0) {
        KOSC_LOG_WARN("Invalid input to encode.");
        return {nullptr, 0};
    }
    const uint32_t n = code->polynomial_num;
    const uint32_t tail = code->constraint - 1;
    const uint64_t length = (uint64_t{bit_num} + tail) * n;
    block_ptr<uint8_t> coded{length <= UINT32_MAX ? alloc_array<uint8_t>(length) : nullptr};
    KOSC_RETURN_IF(!coded, (conv_data_t{nullptr, 0}), "No enough memory.");

    uint8_t* const out = coded.get();
    conv_encode(*code, bits, bit_num, [out](size_t position, uint8_t bit) { out[position] = bit; });
    return {coded.release(), static_cast<uint32_t>(length)};
}

conv_data_t conv_code_decode_hard(const conv_code_t* code, const uint8_t* coded, uint32_t coded_len, bool terminated)
{
    constexpr conv_data_t failed = {nullptr, 0};
    KOSC_RETURN_IF(code == nullptr || coded == nullptr, failed, "NULL pointer.");
    KOSC_RETURN_IF(coded_len % code->polynomial_num != 0, failed, "Data length(%u) isn't dividable by %u.", coded_len,
                   code->polynomial_num);
    return viterbi_decode(code, coded, coded_len / code->polynomial_num, terminated);
}

uint32_t conv_code_rate(const conv_code_t* code) { return code->polynomial_num; }

void conv_code_free_data(uint8_t* data, uint32_t) { std::free(data); }

uint32_t reverse_bits(uint8_t value, uint32_t bit_num)
{
    uint32_t reversed = 0;
    for (uint32_t j = 0; j < CHAR_BIT && j < bit_num; ++j) {
        reversed |= (uint32_t{value} >> j & 1) << ((bit_num - 1 - j) & SHIFT_MASK);
    }
    return reversed;
}
