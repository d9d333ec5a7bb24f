#include "clipping.h"

#include <algorithm>
#include <cmath>
#include <set>

namespace kosc_inspect {
namespace {

constexpr size_t BLOCK = 1024;

// The distance of neighbouring values: a step of 16 bits, or of 8 where no value lies between such steps.
float step_of(const std::vector<float>& values)
{
    constexpr float FINE = 1.0F / 32768.0F, COARSE = 1.0F / 128.0F;
    const auto on_coarse_step = [](float x) { return std::floor(x / COARSE) * COARSE == x; };
    return std::all_of(values.begin(), values.end(), on_coarse_step) ? COARSE : FINE;
}

// Samples at the limits, if the block is clipped.
uint64_t clipped_samples(const std::vector<float>& block)
{
    constexpr float WITHIN = 1.5F;       // steps: the limits of 16 bits differ by one
    constexpr float LEAST_RANGE = 60.0F; // with fewer steps, many samples share the highest
    constexpr uint64_t LEAST_SAMPLES = 6, OUTNUMBER = 4, FLAT = 3;
    constexpr float CELLS = 32.0F;
    constexpr size_t VARIED = 4;
    const float tolerance = WITHIN * step_of(block);
    const auto [low, high] = std::minmax_element(block.begin(), block.end());
    const auto distance = [low = *low, high = *high](float x) { return std::min(x - low, high - x); };
    uint64_t at_limit = 0, runs = 0;
    uint64_t below = 0;   // in a range five times as wide, where a smooth top of three samples goes on
    std::set<int> before; // the sizes of what comes before each, coarsely
    for (size_t i = 0; i < block.size(); ++i) {
        const bool here = distance(block[i]) < tolerance;
        at_limit += here ? 1 : 0;
        below += !here && distance(block[i]) < 6 * tolerance ? 1 : 0;
        if (here && i > 0 && distance(block[i - 1]) >= tolerance) {
            ++runs;
            before.insert(static_cast<int>(std::fabs(block[i - 1]) / (*high - *low) * CELLS));
        }
    }
    // The peaks of a tone, too, are all alike, but then so is what comes before each.
    const bool varied = before.size() >= VARIED;
    const bool wide = *high - *low >= LEAST_RANGE / WITHIN * tolerance;
    return wide && runs > 0 && at_limit >= LEAST_SAMPLES && at_limit > OUTNUMBER * below &&
                   (varied || at_limit >= FLAT * runs)
               ? at_limit
               : 0;
}

} // namespace

void clip_meter::process(const float* samples, size_t count, size_t stride)
{
    for (size_t i = 0; i < count; ++i) {
        block_.push_back(samples[i * stride]);
        if (block_.size() == BLOCK) {
            judge_block();
        }
    }
}

void clip_meter::finish() { judge_block(); }

void clip_meter::judge_block()
{
    const uint64_t clipped = block_.empty() ? 0 : clipped_samples(block_);
    if (clipped != 0) {
        if (spans_.empty() || spans_.back().end != position_) {
            spans_.push_back({position_, position_, 0});
        }
        spans_.back().end += block_.size();
        spans_.back().samples += clipped;
        total_ += clipped;
    }
    position_ += block_.size();
    block_.clear();
}

uint64_t clip_meter::between(uint64_t begin, uint64_t end) const
{
    double sum = 0.0;
    for (const clipped_span& span : spans_) {
        const uint64_t from = std::max(begin, span.begin);
        const uint64_t to = std::min(end, span.end);
        if (from < to) {
            sum += static_cast<double>(span.samples) * static_cast<double>(to - from) /
                   static_cast<double>(span.end - span.begin);
        }
    }
    return static_cast<uint64_t>(std::lround(sum));
}

} // namespace kosc_inspect
