#include "clipping.h"

#include <algorithm>
#include <cmath>

namespace kosc_inspect {
namespace {

constexpr size_t BLOCK = 1024;

} // namespace

void clip_meter::hear(const float* samples, size_t count, size_t stride)
{
    for (size_t i = 0; i < count; ++i) {
        block_.push_back(std::fabs(samples[i * stride]));
        if (block_.size() == BLOCK) {
            judge_block();
        }
    }
}

void clip_meter::finish() { judge_block(); }

void clip_meter::judge_block()
{
    constexpr float STEP = 1.0F / 32768.0F;
    constexpr float TOLERANCE = 1.5F * STEP; // the limits of 16 bits differ by one step
    constexpr float LEAST_LIMIT = 30 * STEP; // with fewer steps, many samples share the highest
    constexpr uint64_t LEAST_SAMPLES = 6;
    constexpr uint64_t OUTNUMBER = 4;
    const float limit = block_.empty() ? 0.0F : *std::max_element(block_.begin(), block_.end());
    uint64_t at_limit = 0;
    uint64_t below = 0; // in a range three times as wide
    for (const float x : block_) {
        at_limit += x >= limit - TOLERANCE ? 1 : 0;
        below += x < limit - TOLERANCE && x >= limit - 4 * TOLERANCE ? 1 : 0;
    }
    if (limit >= LEAST_LIMIT && at_limit >= LEAST_SAMPLES && at_limit > OUTNUMBER * below) {
        if (spans_.empty() || spans_.back().end != position_) {
            spans_.push_back({position_, position_, 0});
        }
        spans_.back().end += block_.size();
        spans_.back().samples += at_limit;
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
