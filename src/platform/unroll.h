// Before a short loop over registers: has it written out step by step where loops are otherwise left as they are.
#ifndef KOSC_PLATFORM_UNROLL_H
#define KOSC_PLATFORM_UNROLL_H

#ifdef __clang__
#define KOSC_UNROLL _Pragma("clang loop unroll(full)")
#else
#define KOSC_UNROLL
#endif

#endif
