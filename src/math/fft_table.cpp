#include "math/fft_table.h"

namespace kosc {

fft_table FFT_TABLE;
bool FFT_TABLE_READY = false;

} // namespace kosc

namespace {

[[gnu::constructor]] void fill_at_load()
{
    kosc::fill_fft_table(&kosc::FFT_TABLE);
    kosc::FFT_TABLE_READY = true;
}

} // namespace
