#include "sync/first_maximum.h"

uint32_t kosc::first_maximum(const double* values, uint32_t count)
{
    uint32_t first = 0;
    for (uint32_t i = 1; i < count; ++i) {
        first = values[i] > values[first] ? i : first;
    }
    return first;
}
