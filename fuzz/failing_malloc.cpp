#include "failing_malloc.h"

#include <cstddef>
#include <cstdio>
#include <cstdlib>

namespace {

// Nothing that the modem is asked for here may need more; what would is to be refused before it is asked of the system.
constexpr size_t MOST_BYTES = size_t{1} << 28;

#ifdef _WIN32 // where a thread's own variables come from malloc, and replays have one thread
#define KOSC_OF_A_THREAD
#else
#define KOSC_OF_A_THREAD thread_local
#endif
KOSC_OF_A_THREAD bool armed = false;
KOSC_OF_A_THREAD bool failed = false;
KOSC_OF_A_THREAD uint32_t rate_of_256 = 0;
KOSC_OF_A_THREAD uint32_t state = 0;

bool refuses(size_t count, size_t size)
{
    if (!armed) {
        return false;
    }
    if (size != 0 && count > MOST_BYTES / size) {
        std::fprintf(stderr, "asked for %zu times %zu bytes\n", count, size);
        std::abort();
    }
    state = state * 1664525U + 1013904223U; // Knuth and Lewis, as in Numerical Recipes
    const bool refused = state >> 24 < rate_of_256;
    failed = failed || refused;
    return refused;
}

} // namespace

void fail_allocations(fuzz_input* in, bool any)
{
    armed = true;
    failed = false;
    rate_of_256 = any ? in->byte() : 0;
    state = any ? in->take<uint16_t>() : 0;
}

void allow_allocations() { armed = false; }

bool allocation_failed() { return failed; }

extern "C" {
void* __real_malloc(size_t size);               // NOLINT: the linker's names
void* __real_calloc(size_t count, size_t size); // NOLINT
void* __wrap_malloc(size_t size);               // NOLINT
void* __wrap_calloc(size_t count, size_t size); // NOLINT

void* __wrap_malloc(size_t size) { return refuses(1, size) ? nullptr : __real_malloc(size); }

void* __wrap_calloc(size_t count, size_t size) { return refuses(count, size) ? nullptr : __real_calloc(count, size); }
}
