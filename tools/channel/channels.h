// Models of what happens to sound between a loudspeaker and a recording: seeded, in plain doubles, no dependency.
//
// A signal is a vector of samples at any scale. Every model that delays or spreads returns a signal that is longer by
// what it needs; sample 0 of the result belongs to sample 0 of the input.
#ifndef KOSC_LINK_CHANNELS_H
#define KOSC_LINK_CHANNELS_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kosc_link {

using signal = std::vector<double>;

constexpr double PI = 3.14159265358979323846;
constexpr double FULL_SCALE = 32768.0; // of 16-bit samples

// Modified Bessel function of the first kind, order 0: the Kaiser window's.
double bessel_i0(double x);

// Random numbers that are the same on every platform for the same seed (splitmix64: Steele, Lea and Flood 2014,
// "Fast splittable pseudorandom number generators"; normal numbers: Box and Muller 1958).
class random_source {
public:
    explicit random_source(uint64_t seed) : state_(seed) {}
    uint64_t bits();
    double uniform();  // above 0, up to 1
    double gaussian(); // mean 0, variance 1

private:
    uint64_t state_;
    double spare_ = 0.0;
    bool has_spare_ = false;
};

// A frequency range in Hz.
struct band {
    double low;
    double high;
};

constexpr band NEAR_ULTRASONIC = {18000, 20953.125}; // the subcarriers of the default configuration

// Mean square of `length` samples from `start` on; samples outside the signal count as silence.
double mean_power(const signal& in, size_t start, size_t length);

// Variance of white noise whose power within `where` lies `snr_db` below `signal_power`.
double noise_variance(double signal_power, double snr_db, band where, double sample_rate);

void add_noise(signal* in, double variance, random_source* random);

void add_dc(signal* in, double level);

void scale(signal* in, double factor);

// Cuts every sample to -limit .. limit.
void clip(signal* in, double limit);

// Rounds to 16-bit PCM, saturating.
std::vector<int16_t> to_pcm(const signal& in);

// One echo, or the direct sound.
struct tap {
    size_t delay; // in samples
    double gain;
};

signal apply_taps(const signal& in, const std::vector<tap>& taps);

signal convolve(const signal& in, const signal& response);

// A room with one source: the direct sound, silence, and a diffuse tail.
struct room {
    double rt60;       // seconds in which the tail decays by 60 dB
    double tail_start; // seconds from the direct sound to the tail
    double direct_db;  // energy of the direct sound over that of the whole tail
    double sample_rate;
};

// An impulse response of such a room, a new one at every call: the direct sound at sample 0 with gain 1, then normal
// numbers under an exponential envelope, rt60 seconds long. Polack 1988's statistical model of reverberation.
signal room_response(const room& r, random_source* random);

// Plays `in` on a clock that runs (1 + ppm/1e6) times as fast as the recording one: the frequencies of the result are
// that much higher, its length that much shorter. The rate is ppm_begin before result sample `from`, ppm_end from
// `to` on, linear in between. Kaiser-windowed sinc interpolation; images and ripple stay below -80 dB up to 21 kHz of
// a 48 kHz signal.
signal drift(const signal& in, double ppm_begin, double ppm_end, size_t from, size_t to);

// Attenuates within `where` by 0 dB at its low end to `drop_db` at its high end, linear in frequency, flat on both
// sides. Linear phase, without delay.
signal roll_off(const signal& in, band where, double drop_db, double sample_rate);

// Removes what lies above `cutoff` Hz (half the amplitude there). Linear phase, without delay.
signal low_pass(const signal& in, double cutoff, double sample_rate);

// Removes what lies outside of `where` likewise.
signal band_pass(const signal& in, band where, double sample_rate);

} // namespace kosc_link

#endif
