// Calls of the strided vectors and of the queue, with arguments from a fuzzer's input.
#ifndef KOSC_FUZZ_CONTAINER_CALLS_H
#define KOSC_FUZZ_CONTAINER_CALLS_H

#include "input.h"

void call_bytes(fuzz_input* in);
void call_doubles(fuzz_input* in);
void call_complex(fuzz_input* in);
void call_complex_only(fuzz_input* in);
void call_queue(fuzz_input* in);

#endif
