// Debug dump of a configuration.
#ifndef KOSC_CONFIG_CONFIG_DUMP_H
#define KOSC_CONFIG_CONFIG_DUMP_H

#include "kosc/config.h"
#include "kosc/frame_layout.h"

namespace kosc {

// Logs every part of a configuration at DEBUG.
void dump_cfg(const soundcomm_cfg_t& cfg);

// Logs a frame layout at DEBUG.
void dump_frame_struct(const frame_struct_t& frame);

} // namespace kosc

#endif
