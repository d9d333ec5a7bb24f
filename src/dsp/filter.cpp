#include "kosc/filter.h"

#include <algorithm>
#include <cmath>

#include "math/complex_ops.h"
#include "math/constants.h"
#include "platform/owned.h"

using namespace kosc;

namespace {

using filter_ptr = owned<butterworth_bandpass, free_butterworth_bandpass>;

// Far above any order that direct form II can run; keeps 2n + 1 and the work arrays countable.
constexpr uint32_t MAX_ORDER = 1 << 16;

// Angle a of the low-pass prototype's pole k, -sin(a) + i*cos(a).
double pole_angle(uint32_t n, uint32_t k) { return PI * (2.0 * k + 1.0) / (2.0 * n); }

// The factors 1 + linear/z + quadratic/z^2 of the denominator, one a prototype pole.
//
// The bilinear transform and the step from low-pass to band-pass put
//     s = cot(theta) * (1 - 2*cp/ct/z + 1/z^2) / (1 - 1/z^2)
// in the prototype's place of s, with theta = pi*(f2 - f1)/2, cp = cos(pi*(f1 + f2)/2), ct = cos(theta) and st =
// sin(theta). A pole p then leaves (ct - p*st) - 2*cp/z + (ct + p*st)/z^2, here over its first coefficient, the square
// of whose magnitude is d.
// Source: Constantinides 1970, "Spectral transformations for digital filters".
void make_factors(uint32_t n, double f1, double f2, double* linear, double* quadratic)
{
    const double cp = std::cos(PI * (f2 + f1) / 2.0);
    const double theta = PI * (f2 - f1) / 2.0;
    const double ct = std::cos(theta);
    const double st = std::sin(theta);
    for (uint32_t k = 0; k < n; ++k) {
        const double sp = std::sin(pole_angle(n, k));
        const double cphi = std::cos(pole_angle(n, k));
        const double d = 1.0 + 2.0 * st * ct * sp;
        store(linear, k, {-2.0 * cp * (ct + st * sp) / d, -2.0 * cp * st * cphi / d});
        store(quadratic, k, {(2.0 * ct * ct - 1.0) / d, 2.0 * st * ct * cphi / d});
    }
}

// Multiplies the factors out: element j of `product` becomes the coefficient of z^-(j+1).
void multiply_out(uint32_t n, const double* linear, const double* quadratic, double* product)
{
    store(product, 0, load(linear, 0));
    store(product, 1, load(quadratic, 0));
    for (uint32_t i = 1; i < n; ++i) {
        const kom_complex b = load(linear, i);
        const kom_complex c = load(quadratic, i);
        store(product, 2 * i + 1, load(product, 2 * i + 1) + c * load(product, 2 * i - 1));
        for (uint32_t j = 2 * i; j >= 2; --j) {
            store(product, j, load(product, j) + (b * load(product, j - 1) + c * load(product, j - 2)));
        }
        store(product, 1, load(product, 1) + (b * load(product, 0) + c));
        store(product, 0, load(product, 0) + b);
    }
}

double* design_denominator(uint32_t n, double f1, double f2)
{
    const block_ptr<double> linear{alloc_zeroed<double>(size_t{2} * n)};
    const block_ptr<double> quadratic{alloc_zeroed<double>(size_t{2} * n)};
    block_ptr<double> work{alloc_zeroed<double>(size_t{4} * n)};
    if (!linear || !quadratic || !work) {
        return nullptr;
    }
    make_factors(n, f1, f2, linear.get(), quadratic.get());
    multiply_out(n, linear.get(), quadratic.get(), work.get());
    // The imaginary parts cancel; gather the real ones in place behind the leading 1.
    work[1] = work[0];
    work[0] = 1.0;
    for (uint32_t k = 3; k <= 2 * n; ++k) {
        work[k] = work[2 * k - 2];
    }
    return work.release();
}

// (1 - z^-2)^n: binomial coefficients of alternating sign on every other tap.
double* design_numerator(uint32_t n)
{
    double* const b = alloc_zeroed<double>(size_t{2} * n + 1);
    int32_t binomial = 1;
    for (uint32_t i = 0; b != nullptr && i <= n / 2; ++i) {
        if (i > 0) {
            binomial = static_cast<int32_t>(int64_t{n - i + 1} * binomial / i);
        }
        b[2 * i] = i % 2 == 0 ? binomial : -binomial;
        b[2 * (n - i)] = (n - i) % 2 == 0 ? binomial : -binomial;
    }
    return b;
}

// What makes the gain 1 at the centre of the band: 1 over the product of cot(theta) - p over all poles, since the
// numerator is to be divided by what the denominator's factors were.
double gain_factor(uint32_t n, double f1, double f2)
{
    const double g = 1.0 / std::tan(PI * (f2 - f1) / 2.0);
    double re = 1.0;
    double im = 0.0;
    for (uint32_t k = 0; k < n; ++k) {
        const double p = g + std::sin(pole_angle(n, k));
        const double q = std::cos(pole_angle(n, k));
        const double u = (re + im) * (p - q);
        const double v = re * p;
        const double w = -im * q;
        re = v - w;
        im = u - v - w;
    }
    return 1.0 / re;
}

} // namespace

butterworth_bandpass* create_butterworth_bandpass1(uint32_t order, int32_t scale, double f1, double f2)
{
    filter_ptr design{order != 0 && order <= MAX_ORDER ? alloc_record<butterworth_bandpass>() : nullptr};
    if (!design) {
        return nullptr;
    }
    const uint32_t taps = 2 * order + 1;
    *design = {order, f1,
               f2,    design_numerator(order),
               taps,  design_denominator(order, f1, f2),
               taps,  alloc_zeroed<double>(taps),
               taps};
    if (design->b == nullptr || design->a == nullptr || design->w == nullptr) {
        return nullptr;
    }
    const double gain = (scale & 1) != 0 ? gain_factor(order, f1, f2) : 1.0;
    for (uint32_t i = 0; i < taps; ++i) {
        design->b[i] *= gain;
    }
    return design.release();
}

butterworth_bandpass* create_butterworth_bandpass2(uint32_t order, int32_t scale, double f_low, double f_high,
                                                   double sample_rate)
{
    return create_butterworth_bandpass1(order, scale & 1, f_low * 2.0 / sample_rate, f_high * 2.0 / sample_rate);
}

double butterworth_bandpass_filter(butterworth_bandpass* filter_record, double x)
{
    return filter(filter_record->b, filter_record->nb, filter_record->a, filter_record->na, filter_record->w, x);
}

void butterworth_bandpass_reset_buffer(butterworth_bandpass* filter_record)
{
    if (filter_record != nullptr && filter_record->w != nullptr) {
        const size_t bytes = filter_record->nw * sizeof(double);
        bounded_set(filter_record->w, bytes, 0, bytes);
    }
}

void free_butterworth_bandpass(butterworth_bandpass* filter_record)
{
    if (filter_record != nullptr) {
        std::free(filter_record->b);
        std::free(filter_record->a);
        std::free(filter_record->w);
        std::free(filter_record);
    }
}

double filter(const double* b, uint32_t nb, const double* a, uint32_t na, double* w, double x)
{
    if (nb == 0 || na == 0) {
        return 0.0;
    }
    const uint32_t m = std::max(nb, na) - 1;
    double v = a[0] * x;
    for (uint32_t k = 1; k < na; ++k) {
        v -= a[k] * w[m - k];
    }
    w[m] = v;
    double y = 0.0;
    for (uint32_t k = 0; k < nb; ++k) {
        y += b[k] * w[m - k];
    }
    for (uint32_t i = 0; i < m; ++i) {
        w[i] = w[i + 1];
    }
    w[m] = 0.0;
    return y;
}
