// Frames whose beginning is not recognised, found by the rest of them.
#ifndef KOSC_INSPECT_FRAME_SEARCH_H
#define KOSC_INSPECT_FRAME_SEARCH_H

#include <optional>
#include <vector>

#include "kosc/context.h"

namespace kosc_inspect {

// Where the frame begins whose pilots behind the synchronisation pilot are clearest, if any is: samples in 16-bit steps
// at the modem's rate, in which it lies as a whole.
std::optional<size_t> find_by_later_pilots(const soundcomm_paras_t& paras, const std::vector<double>& samples);

// The same of the loudest frame's length in the band; none in a recording that is shorter.
std::optional<size_t> find_loudest_part(const soundcomm_paras_t& paras, const std::vector<double>& samples);

} // namespace kosc_inspect

#endif
