#include "sync/dot.h"

double kosc::dot(const double* a, const double* b, uint32_t count)
{
    double sum = 0.0;
    for (uint32_t i = 0; i < count; ++i) {
        sum += a[i] * b[i];
    }
    return sum;
}
