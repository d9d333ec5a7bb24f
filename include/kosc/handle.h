/**
 * @file
 * The record behind a host's handle, for tools that work on both levels.
 */
#ifndef KOSC_HANDLE_H
#define KOSC_HANDLE_H

#include <stdint.h>

#include "kosc/context.h"
#include "kosc/kosc.h"
#include "kosc/receiver.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Channels of a handle. */
enum { KOSC_CHANNELS = 2 };

/** A handle; arrays are indexed by the channel. */
struct soundcommu_handle_t {
    soundcomm_context_t* ctx[KOSC_CHANNELS];      /**< owned */
    result_set_t result[KOSC_CHANNELS];           /**< messages of the last decode call; `correct.buffer` is owned */
    uint32_t result_len[KOSC_CHANNELS];           /**< samples a block that `result` was last sized for */
    recv_callback_t recv_callback[KOSC_CHANNELS]; /**< of ko_soundcommu_init(), else null */
    ko_soundcommu_receive_t on_messages;          /**< of ko_soundcommu_init_with(), may be null */
    void* user;                                   /**< handed to it */
    void* combined[KOSC_CHANNELS]; /**< owned; what is known of combined messages in `result`, null without combining */
};

#ifdef __cplusplus
}
#endif

#endif
