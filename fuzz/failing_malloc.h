// Allocations of the library that fail at a seeded rate; needs the library linked statically, with --wrap.
#ifndef KOSC_FUZZ_FAILING_MALLOC_H
#define KOSC_FUZZ_FAILING_MALLOC_H

#include "input.h"

// Until allow_allocations(), allocations of this thread are watched: none may be huge. With `any`, each fails besides
// with a chance that the input says.
void fail_allocations(fuzz_input* in, bool any);

void allow_allocations();

// Whether an allocation has failed, or was refused for its size, since the last fail_allocations().
bool allocation_failed();

#endif
