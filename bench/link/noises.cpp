#include "noises.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iterator>

namespace kosc_link {
namespace {

constexpr double PI = 3.141592653589793;
constexpr double SAMPLE_RATE = 48000;
constexpr double SPEECH_RATE = 22050;
constexpr size_t WAV_HEADER = 44;
constexpr double MAX_OVERTONE_HZ = 16000;
constexpr size_t BEAT = 24000;   // samples: 120 beats a minute
constexpr int BEATS_A_CHORD = 4; // one bar

double note_hz(int half_tones_above_a) { return 220 * std::pow(2.0, half_tones_above_a / 12.0); }

// Overtones fall by 6 dB an octave and die away the sooner the higher they are, as a plucked string's do.
void pluck(signal* out, size_t at, double hertz, double gain)
{
    for (int overtone = 1; overtone * hertz < MAX_OVERTONE_HZ; ++overtone) {
        const double turn = 2 * PI * overtone * hertz / SAMPLE_RATE;
        const double decay = std::exp(-(1.5 + 0.7 * overtone) / SAMPLE_RATE);
        double amplitude = gain / overtone;
        double before = amplitude * std::sin(-turn); // each sample from the two before it
        double now = 0;
        for (size_t i = at; i < out->size() && amplitude > 1e-4 * gain; ++i, amplitude *= decay) {
            (*out)[i] += now;
            const double next = 2 * decay * std::cos(turn) * now - decay * decay * before;
            before = now;
            now = next;
        }
    }
}

// A burst of noise, white as a cymbal's or smoothed to a drum's.
void hit(signal* out, size_t at, double gain, double seconds, double smoothing, random_source* random)
{
    double level = 0;
    const size_t end = std::min(out->size(), at + static_cast<size_t>(5 * seconds * SAMPLE_RATE));
    for (size_t i = at; i < end; ++i) {
        level = smoothing * level + random->gaussian();
        (*out)[i] += gain * level * std::exp(-static_cast<double>(i - at) / (seconds * SAMPLE_RATE));
    }
}

} // namespace

signal read_speech(const std::string& wav_name)
{
    std::ifstream file(wav_name, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    signal speech;
    for (size_t i = WAV_HEADER; i + 1 < bytes.size(); i += 2) {
        speech.push_back(static_cast<int16_t>(static_cast<uint8_t>(bytes[i]) | bytes[i + 1] << 8));
    }
    const double ppm = 1e6 * (SPEECH_RATE / SAMPLE_RATE - 1); // a clock that runs so much too slow
    return speech.empty() ? speech : drift(speech, ppm, ppm, 0, 0);
}

signal make_music(double seconds, random_source* random)
{
    signal music(static_cast<size_t>(seconds * SAMPLE_RATE));
    int root = 0;
    int third = 4;
    for (size_t beat = 0, at = 0; at < music.size(); ++beat, at += BEAT) {
        if (beat % BEATS_A_CHORD == 0) {
            root = static_cast<int>(random->bits() % 12);
            third = (random->bits() & 1) != 0 ? 4 : 3;
            pluck(&music, at, note_hz(root - 24), 2.0);
            pluck(&music, at, note_hz(root + third), 0.6);
            pluck(&music, at, note_hz(root + 7), 0.6);
        }
        const int melody[] = {root + 12, root + third + 12, root + 19, root + 24};
        for (size_t half = 0; half < BEAT; half += BEAT / 2) {
            pluck(&music, at + half, note_hz(melody[random->bits() % 4]), 0.8);
            hit(&music, at + half, 0.2, 0.03, 0.0, random); // cymbal
        }
        hit(&music, at, 0.05, 0.08, beat % 2 == 0 ? 0.98 : 0.8, random); // bass drum, snare drum
    }
    return music;
}

} // namespace kosc_link
