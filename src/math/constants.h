#ifndef KOSC_MATH_CONSTANTS_H
#define KOSC_MATH_CONSTANTS_H

namespace kosc {

constexpr double PI = 3.141592653589793;

} // namespace kosc

#endif
