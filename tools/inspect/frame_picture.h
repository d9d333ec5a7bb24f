// A frame's symbols and its channel, for a picture: as the default receiver sees them, and as the second look does.
#ifndef KOSC_INSPECT_FRAME_PICTURE_H
#define KOSC_INSPECT_FRAME_PICTURE_H

#include <complex>
#include <vector>

#include "inspection.h"
#include "kosc/context.h"

namespace kosc_inspect {

struct frame_picture {
    std::vector<std::complex<double>> before; // data symbols, each divided by the nearest pilot's channel
    std::vector<std::complex<double>> after;  // with drift undone, and the channel of all known symbols, smoothed
    std::vector<double> measured_db;          // gain of each subcarrier by the pilots, against their mean
    std::vector<double> smoothed_db;
};

// Empty without the candidate's samples. What is sent is known to the second look where the frame decodes; else only
// its pilots are.
frame_picture picture_of(const soundcomm_paras_t& paras, const candidate& frame);

} // namespace kosc_inspect

#endif
