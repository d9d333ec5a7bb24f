// A frame's symbols and its channel, for a picture: as the first look sees them, and as the second look does.
#ifndef KOSC_INSPECT_FRAME_PICTURE_H
#define KOSC_INSPECT_FRAME_PICTURE_H

#include <complex>
#include <vector>

#include "kosc/core.h"

namespace kosc_inspect {

struct frame_picture {
    std::vector<std::complex<double>> before; // data symbols of the first look
    std::vector<std::complex<double>> after;  // of the second look; empty when there was none
    std::vector<double> measured_db;          // gain of each subcarrier by the pilots, against their mean
    std::vector<double> smoothed_db;
};

// Of a frame that the context has just reported.
frame_picture picture_of(const soundcomm_context_t& context, const frame_report_t& frame);

} // namespace kosc_inspect

#endif
