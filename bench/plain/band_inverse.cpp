#include "dsp/band_inverse.h"

// Every symbol is a whole transform.

band_inverse* kosc::band_inverse_init(uint32_t, uint32_t, uint32_t) { return nullptr; }

void kosc::band_inverse_free(band_inverse*) {}

void kosc::band_inverse_run(const band_inverse*, const double*, double*, double*) {}

uint32_t kosc::band_inverse_work(const band_inverse*) { return 0; }
