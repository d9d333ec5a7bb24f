// Recordings whose label names a wrong sample rate.
#ifndef KOSC_INSPECT_OTHER_RATE_H
#define KOSC_INSPECT_OTHER_RATE_H

#include <cstdint>
#include <optional>
#include <vector>

namespace kosc_inspect {

// The usual rate, other than `label`, at which frames decode in interleaved samples of -1 to 1.
std::optional<uint32_t> rate_that_decodes(const std::vector<float>& interleaved, uint32_t channels, uint32_t label);

} // namespace kosc_inspect

#endif
