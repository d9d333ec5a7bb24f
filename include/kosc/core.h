/**
 * @file
 * All headers of the modem core. Hosts need only kosc/kosc.h.
 */
#ifndef KOSC_CORE_H
#define KOSC_CORE_H

#include "kosc/audio_render.h"
#include "kosc/bands.h"
#include "kosc/block_code.h"
#include "kosc/channel_smoother.h"
#include "kosc/combining.h"
#include "kosc/config.h"
#include "kosc/context.h"
#include "kosc/conv_code.h"
#include "kosc/crc.h"
#include "kosc/crowd.h"
#include "kosc/decoder.h"
#include "kosc/drift.h"
#include "kosc/encoder.h"
#include "kosc/fade.h"
#include "kosc/fft.h"
#include "kosc/filter.h"
#include "kosc/frame_layout.h"
#include "kosc/growable_vector.h"
#include "kosc/handle.h"
#include "kosc/interleaver.h"
#include "kosc/kosc.h"
#include "kosc/log.h"
#include "kosc/ofdm.h"
#include "kosc/papr.h"
#include "kosc/puncture.h"
#include "kosc/qpsk.h"
#include "kosc/receiver.h"
#include "kosc/sample_buffer.h"
#include "kosc/second_look.h"
#include "kosc/soft_viterbi.h"
#include "kosc/vector.h"
#include "kosc/zadoff_chu.h"

#endif
