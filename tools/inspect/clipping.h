// Finds where a recording was cut off at the limits of a recorder or a loudspeaker's amplifier.
#ifndef KOSC_INSPECT_CLIPPING_H
#define KOSC_INSPECT_CLIPPING_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kosc_inspect {

// Neighbouring samples of which some are clipped.
struct clipped_span {
    uint64_t begin;
    uint64_t end;
    uint64_t samples; // the clipped ones
};

// Many samples at the very extreme and hardly any just below it: sound that is not clipped thins out towards its peak.
// A steady tone does not; it counts as clipped only where its tops are flat.
class clip_meter {
public:
    // Takes samples of -1 to 1 that lie `stride` apart.
    void process(const float* samples, size_t count, size_t stride);
    void finish();

    uint64_t total() const { return total_; } // clipped samples
    // Clipped samples between two positions, as far as whole spans tell.
    uint64_t between(uint64_t begin, uint64_t end) const;

private:
    void judge_block();

    std::vector<float> block_;
    uint64_t position_ = 0; // of the block
    std::vector<clipped_span> spans_;
    uint64_t total_ = 0;
};

} // namespace kosc_inspect

#endif
