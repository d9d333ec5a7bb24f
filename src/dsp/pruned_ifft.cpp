#include "dsp/pruned_ifft.h"

#include <cmath>

#include "dsp/pruned_ifft_engine.h"
#include "math/complex_ops.h"
#include "math/constants.h"
#include "platform/owned.h"

using namespace kosc;

namespace {

constexpr uint32_t POINTS = PRUNED_POINTS;
constexpr uint32_t NARROWEST = 2; // lanes
constexpr uint32_t POINT_BITS = 6;
constexpr uint32_t MIN_SYMBOL_LEN = 2 * POINTS * NARROWEST;
constexpr uint32_t MAX_SYMBOL_LEN = 8192;

kom_complex phasor(double angle) { return {std::cos(angle), std::sin(angle)}; }

uint32_t reversed_point(uint32_t bin)
{
    uint32_t row = 0;
    for (uint32_t bit = 0; bit < POINT_BITS; ++bit) {
        row |= (bin >> bit & 1) << (POINT_BITS - 1 - bit);
    }
    return row;
}

// The run for the widest registers that this processor has.
decltype(&run_pruned_ifft_by_two) best_run([[maybe_unused]] uint32_t lanes)
{
#ifdef KOSC_HAS_AVX2
    if (lanes == usual_lanes{} && __builtin_cpu_supports("avx2")) {
        return run_pruned_ifft_by_four;
    }
#endif
    return run_pruned_ifft_by_two;
}

// The factors of subcarrier k, bin `bin`, in lane r: sample pair j = R*q + r is (1 + i*exp(i*t)) * exp(i*2*j*t) of it,
// with t = 2*pi*bin/n, and the same with -t of its conjugate; what depends on q is left to the transform.
void set_factors(pruned_ifft* e, uint32_t symbol_len, uint32_t k, uint32_t bin)
{
    const uint32_t row = reversed_point(bin % POINTS);
    const uint32_t mirror_row = reversed_point((POINTS - bin % POINTS) % POINTS);
    e->direct[row] = k;
    e->mirrored[mirror_row] = k;
    const double t = 2.0 * PI * bin / symbol_len;
    const double scale = 1.0 / symbol_len;
    for (uint32_t r = 0; r < e->lanes; ++r) {
        const kom_complex odd = phasor(t + PI / 2.0);
        const kom_complex mirror_odd = phasor(PI / 2.0 - t);
        const kom_complex step = phasor(2.0 * r * t);
        const kom_complex factor = kom_complex{1.0 + odd.re, odd.im} * step;
        const kom_complex mirror_factor =
            kom_complex{1.0 + mirror_odd.re, mirror_odd.im} * kom_complex{step.re, -step.im};
        e->re[e->lanes * row + r] = factor.re * scale;
        e->im[e->lanes * row + r] = factor.im * scale;
        e->mirror_re[e->lanes * mirror_row + r] = mirror_factor.re * scale;
        e->mirror_im[e->lanes * mirror_row + r] = mirror_factor.im * scale;
    }
}

} // namespace

namespace kosc {

pruned_ifft* pruned_ifft_init(uint32_t symbol_len, uint32_t start, uint32_t count)
{
    const bool serves = symbol_len >= MIN_SYMBOL_LEN && symbol_len <= MAX_SYMBOL_LEN &&
                        (symbol_len & (symbol_len - 1)) == 0 && start != 0 && count <= POINTS &&
                        uint64_t{start} + count < symbol_len / 2;
    owned<pruned_ifft, pruned_ifft_free> e{serves ? alloc_record<pruned_ifft>() : nullptr};
    if (!e) {
        return nullptr;
    }
    e->lanes = symbol_len / (2 * POINTS);
    e->run = best_run(e->lanes);
    const size_t factors = size_t{POINTS} * e->lanes;
    e->re = alloc_zeroed<double>(4 * factors);
    if (e->re == nullptr) {
        return nullptr;
    }
    e->im = e->re + factors;
    e->mirror_re = e->im + factors;
    e->mirror_im = e->mirror_re + factors;
    for (uint32_t k = 0; k < count; ++k) {
        set_factors(e.get(), symbol_len, k, start + k);
    }
    for (uint32_t k = 0; k < POINTS; ++k) {
        e->turn[k] = phasor(2.0 * PI * k / POINTS);
    }
    return e.release();
}

void pruned_ifft_free(pruned_ifft* engine)
{
    if (engine != nullptr) {
        std::free(engine->re);
        std::free(engine);
    }
}

uint32_t pruned_ifft_work(const pruned_ifft* engine) { return 2 * POINTS * engine->lanes; }

void pruned_ifft_run(const pruned_ifft* e, const double* values, double* work, double* samples)
{
    e->run(e, values, work, samples);
}

} // namespace kosc
