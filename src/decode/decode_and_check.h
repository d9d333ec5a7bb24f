// soundcomm_decode() with the CRCs that did not match, and the checks that both looks at a frame begin with.
#ifndef KOSC_DECODE_DECODE_AND_CHECK_H
#define KOSC_DECODE_DECODE_AND_CHECK_H

#include <cstdint>

#include "kosc/context.h"

namespace kosc {

// False, with a message, when there is no context or not a whole frame of samples.
bool check_decode_args(const soundcomm_context_t* ctx, const double* input, uint32_t input_len);

// Where a decoded message goes.
struct message_target {
    uint8_t* correct; // when every CRC matches; may be null
    uint8_t* error;   // when one does not; may be null
    uint32_t len;     // of each
};

// Sets bit i of `failed_crcs` for each CRC i that does not match; parts above 31 share bit 31.
uint32_t decode_and_check(const soundcomm_context_t* ctx, const double* input, uint32_t input_len,
                          const message_target& target, uint32_t* failed_crcs);

} // namespace kosc

#endif
