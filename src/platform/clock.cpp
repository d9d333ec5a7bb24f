#include "platform/clock.h"

#ifdef _WIN32
// The system's own calls: the C library's would bring a threads library along, and another one in every release.
#include <cstdint>
#define WIN32_LEAN_AND_MEAN
#include <windows.h>

namespace kosc {

bool local_time(tm* now, int* millisecond)
{
    SYSTEMTIME system;
    GetLocalTime(&system);
    *now = {};
    now->tm_year = system.wYear - 1900;
    now->tm_mon = system.wMonth - 1;
    now->tm_mday = system.wDay;
    now->tm_hour = system.wHour;
    now->tm_min = system.wMinute;
    now->tm_sec = system.wSecond;
    *millisecond = system.wMilliseconds;
    return true;
}

timespec monotonic_time()
{
    constexpr int64_t NANOSECONDS = 1000000000;
    LARGE_INTEGER ticks;
    LARGE_INTEGER ticks_per_second;
    QueryPerformanceCounter(&ticks);
    QueryPerformanceFrequency(&ticks_per_second);
    const int64_t rate = ticks_per_second.QuadPart;
    timespec now{};
    now.tv_sec = ticks.QuadPart / rate;
    now.tv_nsec = static_cast<decltype(now.tv_nsec)>(ticks.QuadPart % rate * NANOSECONDS / rate);
    return now;
}

} // namespace kosc

#else
#include <sys/time.h>

namespace kosc {

bool local_time(tm* now, int* millisecond)
{
    timeval since{};
    gettimeofday(&since, nullptr);
    *millisecond = static_cast<int>(since.tv_usec / 1000);
    return localtime_r(&since.tv_sec, now) != nullptr;
}

timespec monotonic_time()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now;
}

} // namespace kosc
#endif
