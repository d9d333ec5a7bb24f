#include "channels.h"

#include <algorithm>
#include <cmath>
#include <functional>

#include "transform.h"

namespace kosc_link {
namespace {

constexpr double DECAY_60_DB = 6.907755278982137; // ln(1000): amplitude falls by 60 dB

constexpr int SINC_HALF_WIDTH = 48;
constexpr int SINC_STEPS = 1024; // table entries a sample; linear interpolation in between errs by 1e-6
constexpr double KAISER_BETA = 9.0;

constexpr size_t LONG_RESPONSE = 500; // samples; those are convolved by transforms

constexpr int FIR_HALF_WIDTH = 64;
constexpr int FIR_GRID = 512; // frequencies at which a filter's gain is sampled

// Kaiser 1974; `position` runs from -1 to 1.
double kaiser(double position)
{
    const double inside = 1.0 - position * position;
    return inside <= 0.0 ? 0.0 : bessel_i0(KAISER_BETA * std::sqrt(inside)) / bessel_i0(KAISER_BETA);
}

std::vector<double> make_sinc_table()
{
    std::vector<double> table(size_t{SINC_HALF_WIDTH} * SINC_STEPS + 2);
    for (size_t i = 0; i < table.size(); ++i) {
        const double x = static_cast<double>(i) / SINC_STEPS;
        table[i] = (i == 0 ? 1.0 : std::sin(PI * x) / (PI * x)) * kaiser(x / SINC_HALF_WIDTH);
    }
    return table;
}

double interpolate(const signal& in, double position)
{
    static const std::vector<double> table = make_sinc_table();
    const auto base = static_cast<ptrdiff_t>(std::floor(position));
    const ptrdiff_t first = std::max<ptrdiff_t>(0, base - SINC_HALF_WIDTH + 1);
    const ptrdiff_t last = std::min<ptrdiff_t>(static_cast<ptrdiff_t>(in.size()) - 1, base + SINC_HALF_WIDTH);
    double sum = 0.0;
    for (ptrdiff_t k = first; k <= last; ++k) {
        const double x = std::fabs(position - static_cast<double>(k)) * SINC_STEPS;
        const auto i = static_cast<size_t>(x);
        const double fraction = x - static_cast<double>(i);
        sum += in[static_cast<size_t>(k)] * (table[i] + fraction * (table[i + 1] - table[i]));
    }
    return sum;
}

// A linear-phase filter whose gain at f Hz is gain(f), by frequency sampling under a Kaiser window, applied around
// each sample.
template <typename Gain> signal filter_by_gain(const signal& in, double sample_rate, Gain gain)
{
    signal taps(2 * FIR_HALF_WIDTH + 1);
    for (int n = -FIR_HALF_WIDTH; n <= FIR_HALF_WIDTH; ++n) {
        double sum = 0.0;
        for (int k = 0; k < FIR_GRID; ++k) {
            const double turns = (k + 0.5) / (2 * FIR_GRID); // of the sample rate
            sum += gain(turns * sample_rate) * std::cos(2 * PI * turns * n);
        }
        taps[static_cast<size_t>(n + FIR_HALF_WIDTH)] =
            sum / FIR_GRID * kaiser(static_cast<double>(n) / (FIR_HALF_WIDTH + 1));
    }
    const signal delayed = convolve(in, taps);
    return {delayed.begin() + FIR_HALF_WIDTH, delayed.end()};
}

// Overlap-add, two blocks in a transform: the real parts of its values are one, the imaginary ones the other.
signal convolve_by_transforms(const signal& in, const signal& response)
{
    complex_signal spectrum(response.begin(), response.end()), block;
    spectrum.resize(power_of_two_from(response.size() + response.size() / 2));
    const size_t step = spectrum.size() - response.size() + 1;
    transform(&spectrum, true);
    signal out(in.size() + response.size() - 1);
    for (size_t from = 0; from < in.size(); from += 2 * step) {
        block.assign(spectrum.size(), 0.0);
        for (size_t i = 0; i < 2 * step && from + i < in.size(); ++i) {
            doubles(block)[2 * (i % step) + i / step] = in[from + i];
        }
        transform(&block, true);
        std::transform(block.begin(), block.end(), spectrum.begin(), block.begin(), std::multiplies<>());
        transform(&block, false);
        for (size_t i = 0; i < 2 * block.size(); ++i) {
            const size_t to = from + i / 2 + i % 2 * step;
            if (to < out.size()) {
                out[to] += doubles(block)[i];
            }
        }
    }
    return out;
}

} // namespace

// By its power series.
double bessel_i0(double x)
{
    double term = 1.0;
    double sum = 1.0;
    for (int k = 1; term > sum * 1e-17; ++k) {
        term *= (x / (2 * k)) * (x / (2 * k));
        sum += term;
    }
    return sum;
}

uint64_t random_source::bits()
{
    state_ += 0x9E3779B97F4A7C15u;
    uint64_t z = state_;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
    return z ^ (z >> 31);
}

double random_source::uniform() { return static_cast<double>((bits() >> 11) + 1) * 0x1p-53; }

double random_source::gaussian()
{
    if (has_spare_) {
        has_spare_ = false;
        return spare_;
    }
    const double radius = std::sqrt(-2.0 * std::log(uniform()));
    const double angle = 2 * PI * uniform();
    spare_ = radius * std::sin(angle);
    has_spare_ = true;
    return radius * std::cos(angle);
}

double mean_power(const signal& in, size_t start, size_t length)
{
    const size_t end = std::min(in.size(), start + length);
    double energy = 0.0;
    for (size_t i = start; i < end; ++i) {
        energy += in[i] * in[i];
    }
    return length == 0 ? 0.0 : energy / static_cast<double>(length);
}

double noise_variance(double signal_power, double snr_db, band where, double sample_rate)
{
    const double share = (where.high - where.low) / (sample_rate / 2);
    return signal_power / std::pow(10.0, snr_db / 10.0) / share;
}

void add_noise(signal* in, double variance, random_source* random)
{
    const double deviation = std::sqrt(variance);
    for (double& x : *in) {
        x += deviation * random->gaussian();
    }
}

void add_dc(signal* in, double level)
{
    for (double& x : *in) {
        x += level;
    }
}

void scale(signal* in, double factor)
{
    for (double& x : *in) {
        x *= factor;
    }
}

void clip(signal* in, double limit)
{
    for (double& x : *in) {
        x = std::clamp(x, -limit, limit);
    }
}

std::vector<int16_t> to_pcm(const signal& in)
{
    std::vector<int16_t> pcm(in.size());
    std::transform(in.begin(), in.end(), pcm.begin(), [](double x) {
        return static_cast<int16_t>(std::lround(std::clamp(x, double{INT16_MIN}, double{INT16_MAX})));
    });
    return pcm;
}

signal apply_taps(const signal& in, const std::vector<tap>& taps)
{
    size_t longest = 0;
    for (const tap& t : taps) {
        longest = std::max(longest, t.delay);
    }
    signal out(in.size() + longest);
    for (const tap& t : taps) {
        for (size_t i = 0; i < in.size(); ++i) {
            out[i + t.delay] += t.gain * in[i];
        }
    }
    return out;
}

signal convolve(const signal& in, const signal& response)
{
    if (response.size() > LONG_RESPONSE) {
        return convolve_by_transforms(in, response);
    }
    std::vector<tap> taps;
    for (size_t i = 0; i < response.size(); ++i) {
        if (response[i] != 0.0) {
            taps.push_back({i, response[i]});
        }
    }
    return apply_taps(in, taps);
}

signal room_response(const room& r, random_source* random)
{
    const auto start = static_cast<size_t>(r.tail_start * r.sample_rate);
    signal response(static_cast<size_t>(r.rt60 * r.sample_rate) + 1);
    double energy = 0.0;
    for (size_t i = std::max<size_t>(start, 1); i < response.size(); ++i) {
        const double decay = std::exp(-DECAY_60_DB * static_cast<double>(i) / (r.rt60 * r.sample_rate));
        response[i] = decay * random->gaussian();
        energy += response[i] * response[i];
    }
    scale(&response, energy > 0.0 ? std::sqrt(std::pow(10.0, -r.direct_db / 10.0) / energy) : 0.0);
    response[0] = 1.0;
    return response;
}

signal drift(const signal& in, double ppm_begin, double ppm_end, size_t from, size_t to)
{
    const double slope = to > from ? (ppm_end - ppm_begin) / static_cast<double>(to - from) : 0.0;
    signal out;
    out.reserve(in.size() + in.size() / 100);
    double position = 0.0;
    while (position < static_cast<double>(in.size())) {
        out.push_back(interpolate(in, position));
        const double inside = static_cast<double>(std::clamp(out.size(), from, std::max(from, to)) - from);
        const double ppm = to > from ? ppm_begin + slope * inside : (out.size() < to ? ppm_begin : ppm_end);
        position += 1.0 + ppm * 1e-6;
    }
    return out;
}

signal roll_off(const signal& in, band where, double drop_db, double sample_rate)
{
    return filter_by_gain(in, sample_rate, [=](double f) {
        const double inside = std::clamp((f - where.low) / (where.high - where.low), 0.0, 1.0);
        return std::pow(10.0, -drop_db * inside / 20.0);
    });
}

signal low_pass(const signal& in, double cutoff, double sample_rate)
{
    return filter_by_gain(in, sample_rate, [=](double f) { return f < cutoff ? 1.0 : 0.0; });
}

signal band_pass(const signal& in, band where, double sample_rate)
{
    return filter_by_gain(in, sample_rate, [=](double f) { return f > where.low && f < where.high ? 1.0 : 0.0; });
}

} // namespace kosc_link
