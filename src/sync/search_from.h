// The search from a position of the buffer on; data_container_begin() is the one from its front.
#ifndef KOSC_SYNC_SEARCH_FROM_H
#define KOSC_SYNC_SEARCH_FROM_H

#include "kosc/sample_buffer.h"

namespace kosc {

sync_iter* search_from(data_container* container, uint32_t search_start);

} // namespace kosc

#endif
