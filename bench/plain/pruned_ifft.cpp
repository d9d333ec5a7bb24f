#include "dsp/pruned_ifft.h"

// Every symbol is a whole transform.

pruned_ifft* kosc::pruned_ifft_init(uint32_t, uint32_t, uint32_t) { return nullptr; }

void kosc::pruned_ifft_free(pruned_ifft*) {}

void kosc::pruned_ifft_run(const pruned_ifft*, const double*, double*, double*) {}

uint32_t kosc::pruned_ifft_work(const pruned_ifft*) { return 0; }
