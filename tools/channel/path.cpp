#include "path.h"

#include <algorithm>
#include <cmath>

#include "kosc/kosc.hpp"

namespace kosc_link {
namespace {

constexpr double SAMPLE_RATE = kosc::SAMPLE_RATE;
constexpr double ROOM_TAIL_START = 0.001;
constexpr double ROOM_DIRECT_DB = 6.0;

// A first-order low-pass in place, one pole at `corner` Hz.
void smooth(signal* in, double corner)
{
    const double step = 1.0 - std::exp(-2 * PI * corner / SAMPLE_RATE);
    double state = 0.0;
    for (double& x : *in) {
        state += step * (x - state);
        x = state;
    }
}

signal white(size_t length, random_source* random)
{
    signal noise(length);
    add_noise(&noise, 1.0, random);
    return noise;
}

// Low-passed noises of equal power whose corners lie an octave apart add up to 1/f (van der Ziel 1950, "On the noise
// spectra of semi-conductor noise and of flicker effect").
signal pink(size_t length, random_source* random)
{
    constexpr double LOWEST = 20.0;
    signal sum(length);
    for (double corner = LOWEST; corner < SAMPLE_RATE / 2; corner *= 2) {
        signal part = white(length, random);
        smooth(&part, corner);
        const double power = mean_power(part, 0, length);
        for (size_t i = 0; i < length; ++i) {
            sum[i] += part[i] / std::sqrt(power);
        }
    }
    return sum;
}

// Spectrum after Byrne and others 1994, "An international comparison of long-term average speech spectra"; syllables
// after Houtgast and Steeneken 1985, "A review of the MTF concept in room acoustics".
signal speech(size_t length, random_source* random)
{
    constexpr double CORNER = 500.0, SYLLABLES = 4.0;
    signal noise = white(length, random);
    smooth(&noise, CORNER);
    smooth(&noise, CORNER);
    double angle = PI * random->uniform();
    for (double& x : noise) {
        x *= std::sin(angle) * std::sin(angle);
        angle += PI * SYLLABLES * (0.5 + random->uniform()) / SAMPLE_RATE;
    }
    return noise;
}

void add_noise_to(signal* in, const sound_path& path, random_source* random)
{
    const auto counted = [&](const signal& whole) {
        return path.within_band ? band_pass(whole, path.sent_in, SAMPLE_RATE) : whole;
    };
    const double power = loud_power(counted(*in));
    if (path.noise == noise_kind::white) {
        add_noise(in, noise_variance(power, *path.snr_db, path.sent_in, SAMPLE_RATE), random);
        return;
    }
    const signal noise = make_noise(path.noise, in->size(), random);
    const double noise_power = path.within_band ? mean_power(counted(noise), 0, noise.size()) : 1.0;
    const double level = noise_power > 0.0 ? std::sqrt(power / noise_power) * from_db(-*path.snr_db) : 0.0;
    for (size_t i = 0; i < in->size(); ++i) {
        (*in)[i] += level * noise[i];
    }
}

} // namespace

double from_db(double db) { return std::pow(10.0, db / 20.0); }

double loud_power(const signal& in)
{
    constexpr size_t BLOCK = 480;
    constexpr double QUIET = 1e-3; // 30 dB
    std::vector<double> powers;
    for (size_t start = 0; start < in.size(); start += BLOCK) {
        powers.push_back(mean_power(in, start, BLOCK));
    }
    const double loudest = powers.empty() ? 0.0 : *std::max_element(powers.begin(), powers.end());
    double sum = 0.0;
    size_t count = 0;
    for (const double power : powers) {
        if (power > loudest * QUIET) {
            sum += power;
            ++count;
        }
    }
    return count == 0 ? 0.0 : sum / static_cast<double>(count);
}

signal make_noise(noise_kind kind, size_t length, random_source* random)
{
    signal noise = kind == noise_kind::white  ? white(length, random)
                   : kind == noise_kind::pink ? pink(length, random)
                                              : speech(length, random);
    const double power = mean_power(noise, 0, length);
    scale(&noise, power > 0.0 ? 1.0 / std::sqrt(power) : 0.0);
    return noise;
}

signal pass(const signal& in, const sound_path& path, random_source* random)
{
    signal sound = path.drift_ppm == 0.0 ? in : drift(in, path.drift_ppm, path.drift_ppm, 0, 0);
    if (!path.echoes.empty()) {
        std::vector<tap> taps = path.echoes;
        taps.push_back({0, 1.0});
        sound = apply_taps(sound, taps);
    }
    if (path.room_rt60 > 0.0) {
        sound = convolve(sound, room_response({path.room_rt60, ROOM_TAIL_START, ROOM_DIRECT_DB, SAMPLE_RATE}, random));
    }
    if (path.snr_db) {
        add_noise_to(&sound, path, random);
    }
    if (path.low_pass) {
        const size_t length = sound.size();
        sound = low_pass(sound, *path.low_pass, SAMPLE_RATE);
        sound.resize(length);
    }
    scale(&sound, from_db(path.gain_db));
    if (path.clip) {
        clip(&sound, *path.clip * FULL_SCALE);
    }
    return sound;
}

} // namespace kosc_link
