// The system's two clocks: the time of day for people, and one that never turns back.
#ifndef KOSC_PLATFORM_CLOCK_H
#define KOSC_PLATFORM_CLOCK_H

#include <ctime>

namespace kosc {

// The date and time of day here; the millisecond, 0 to 999, into `*millisecond`. False when the system cannot tell.
bool local_time(tm* now, int* millisecond);

// The time since some moment in the past.
timespec monotonic_time();

} // namespace kosc

#endif
