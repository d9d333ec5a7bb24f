#include "combine/mixture.h"

#include <algorithm>
#include <cmath>

#include "math/constants.h"

namespace kosc {
namespace {

// Mean and variance of what is said for a block by bits that carry it.
struct said {
    double mean;
    double variance;
};

said expect_said(const bit_expectations& table, const int8_t* llr, const bool* among)
{
    said sum{};
    for (uint32_t j = 0; j < WEAK_BITS; ++j) {
        if (among == nullptr || among[j]) {
            sum.mean += table.information[llr[j] + 128];
            sum.variance += table.spread[llr[j] + 128];
        }
    }
    return sum;
}

// Of the lesser of two independent Gaussian variables. Source: Clark 1961, "The greatest of a finite set of random
// variables".
said lesser(const said& a, const said& b)
{
    const double deviation = std::sqrt(std::max(a.variance + b.variance, 1e-12));
    const double x = (b.mean - a.mean) / deviation;
    const double density = std::exp(-x * x / 2) / std::sqrt(2 * PI);
    const double a_is_less = std::erfc(-x / std::sqrt(2.0)) / 2;
    const double b_is_less = 1 - a_is_less;
    const double mean = a.mean * a_is_less + b.mean * b_is_less - deviation * density;
    const double square = (a.mean * a.mean + a.variance) * a_is_less + (b.mean * b.mean + b.variance) * b_is_less -
                          (a.mean + b.mean) * deviation * density;
    return {mean, std::max(square - mean * mean, 0.0)};
}

// Whether so much would be said by frames that carry the block, but for chance.
bool is_enough(double sum, double kept, const said& expected)
{
    constexpr double DEVIATIONS = 2.0;
    return sum > std::max(0.0, kept * expected.mean - DEVIATIONS * std::sqrt(expected.variance));
}

void add(double weight, const said& own, said* sum)
{
    sum->mean += weight * own.mean;
    sum->variance += weight * weight * own.variance;
}

} // namespace

bool is_mixture(const frame_group& group, const group_decoder& d)
{
    double for_both = 0.0;
    double for_one[CRC_PARTS] = {};
    double for_all = 0.0;
    said expected_both{};
    said expected_one[CRC_PARTS] = {};
    said expected_all{};
    for (uint32_t i = 0; i < group.count; ++i) {
        const int8_t* const llr = group.frame[i]->llr;
        const double weight = group.weight[i];
        double own[CRC_PARTS];
        said expected[CRC_PARTS];
        for (uint32_t part = 0; part < CRC_PARTS; ++part) {
            own[part] = agreement(d.expectations, d.sign, llr, d.crc_place[part]);
            expected[part] = expect_said(d.expectations, llr, d.crc_place[part]);
            for_one[part] += weight * own[part];
            add(weight, expected[part], &expected_one[part]);
        }
        for_both += weight * std::min(own[0], own[1]);
        add(weight, lesser(expected[0], expected[1]), &expected_both);
        for_all += weight * agreement(d.expectations, d.sign, llr, nullptr);
        add(weight, expect_said(d.expectations, llr, nullptr), &expected_all);
    }
    // Ratios that were measured with a channel too little known promise too much, in all of the block alike.
    const double kept = std::clamp(for_all / std::max(expected_all.mean, 1e-9), 0.0, 1.0);
    return !is_enough(for_both, kept, expected_both) || !is_enough(for_one[0], kept, expected_one[0]) ||
           !is_enough(for_one[1], kept, expected_one[1]);
}

} // namespace kosc
