// The inspection's spectra, for meters.
#ifndef KOSC_TOOL_SPECTRUM_H
#define KOSC_TOOL_SPECTRUM_H

#include "power_spectrum.h"

using kosc_inspect::level_db;
using kosc_inspect::mean_spectrum;
using kosc_inspect::SILENCE_DB;
using kosc_inspect::spectrum_bins;
using kosc_inspect::to_db;

#endif
