// Rearranging the lanes of machine registers, in the words of both compilers.
#ifndef KOSC_MATH_SHUFFLE_H
#define KOSC_MATH_SHUFFLE_H

namespace kosc {

// The vector with these lanes of `a` and `b`, those of `b` numbered behind those of `a`. Always part of its caller: a
// copy of its own could be shared between files that are compiled for different processors.
template <int... lane, typename V> [[gnu::always_inline]] inline V shuffle(V a, V b)
{
#ifdef __clang__
    return __builtin_shufflevector(a, b, lane...);
#else
    using mask = decltype(a == b); // integers of the lanes' size; g++ has the other built-in from version 12 on alone
    return __builtin_shuffle(a, b, mask{lane...});
#endif
}

} // namespace kosc

#endif
