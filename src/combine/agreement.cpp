#include "combine/agreement.h"

#include <algorithm>
#include <cmath>

#include "coding/conv_steps.h"

namespace kosc {
namespace {

constexpr uint32_t LANES = 8;

} // namespace

void init_bit_expectations(bit_expectations* table)
{
    for (int i = 0; i < 256; ++i) {
        table->of[i] = static_cast<float>(std::tanh(LLR_UNIT * static_cast<double>(i - 128) / 2));
    }
}

// tanh(x) = x(945 + 105x^2 + x^4) / (945 + 420x^2 + 15x^4) + ..., Lambert's continued fraction cut off. Source:
// Abramowitz and Stegun 1964, "Handbook of mathematical functions", 4.5.70.
void expect_bits(const float* llr, float* expected)
{
    for (uint32_t j = 0; j < WEAK_BITS; ++j) {
        const float x = std::min(std::max(llr[j] / 2, -4.0F), 4.0F);
        const float square = x * x;
        const float value = x * (945 + square * (105 + square)) / (945 + square * (420 + square * 15));
        expected[j] = std::min(std::max(value, -1.0F), 1.0F);
    }
}

double agreement(const bit_expectations& table, const float* expected, const int8_t* llr, const bool* among)
{
    constexpr float LARGEST = 0.999F; // no bit alone decides
    double sum = 0.0;
    for (uint32_t j = 0; j < WEAK_BITS; j += LANES) {
        float product = 1.0F; // of eight factors between 0.001 and 2, which single precision holds
        for (uint32_t l = j; l < j + LANES; ++l) {
            const float both = expected[l] * table.of[llr[l] + 128] * LARGEST;
            product *= among == nullptr || among[l] ? 1.0F + both : 1.0F;
        }
        sum += std::log(product);
    }
    return sum;
}

void sign_block(const uint8_t* bits, const soft_decoder& decoder, float* sign)
{
    const soundcomm_paras_t& paras = *decoder.paras;
    std::fill_n(sign, WEAK_BITS, 0.0F);
    conv_encode(*paras.conv_code, bits, paras.frame.bits, [&](size_t j, uint8_t bit) {
        if (decoder.position[j] != NO_POSITION) {
            sign[decoder.position[j]] = bit != 0 ? 1.0F : -1.0F;
        }
    });
}

void mark_bits(uint32_t first, uint32_t count, const soft_decoder& decoder, bool* among)
{
    const uint32_t n = decoder.paras->conv_code->polynomial_num;
    const uint32_t end = std::min((first + count + decoder.paras->conv_code->constraint - 1) * n, decoder.coded_len);
    for (uint32_t j = first * n; j < end; ++j) {
        if (decoder.position[j] != NO_POSITION) {
            among[decoder.position[j]] = true;
        }
    }
}

} // namespace kosc
