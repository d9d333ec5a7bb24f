// Recordings with one fault each, staged many times with everything else drawn anew: the inspection must name it.
#include <cmath>
#include <cstdlib>
#include <memory>
#include <string>

#include <algorithm>
#include <gtest/gtest.h>

#include "inspector.h"
#include "kosc/core.h"
#include "path.h"

using namespace kosc_inspect;
using kosc_link::random_source;
using samples = kosc_link::signal; // whose own name is the C library's

namespace {

constexpr size_t FRAME = 11520;
constexpr double RATE = 48000;

double between(double low, double high, random_source& random) { return low + (high - low) * random.uniform(); }

// A frame somewhere in a recording of nearly half a second, in 16-bit steps, and where it begins.
struct stage {
    samples sound;
    size_t start;
};

stage set_stage(random_source& random)
{
    static const std::unique_ptr<soundcomm_context_t, decltype(&soundcomm_release)> modem{make_receiver(0),
                                                                                          soundcomm_release};
    uint8_t message[28];
    for (uint8_t& byte : message) {
        byte = static_cast<uint8_t>(random.bits() >> 56);
    }
    samples frame(FRAME);
    EXPECT_EQ(soundcomm_encode(modem->tx_paras, message, sizeof message, frame.data(), FRAME), 0);
    kosc_link::scale(&frame, between(400, 5000, random) / std::sqrt(kosc_link::mean_power(frame, 0, FRAME)));
    stage s{samples(22000), 2000 + static_cast<size_t>(8000 * random.uniform())};
    std::copy(frame.begin(), frame.end(), s.sound.begin() + static_cast<ptrdiff_t>(s.start));
    return s;
}

// What the microphone and the room add to any recording: noise well below the frame, and somebody who speaks.
void add_background(samples* sound, random_source& random)
{
    const double power = kosc_link::loud_power(*sound);
    add_noise(sound, kosc_link::noise_variance(power, between(18, 35, random), {BAND_LOW, BAND_HIGH}, RATE), &random);
    const double level = std::sqrt(power) * between(0.1, 1.0, random);
    const samples voice = kosc_link::make_noise(kosc_link::noise_kind::speech, sound->size(), &random);
    for (size_t i = 0; i < sound->size(); ++i) {
        (*sound)[i] += level * voice[i];
    }
}

inspection inspect(const samples& sound)
{
    const std::vector<int16_t> pcm = kosc_link::to_pcm(sound);
    std::vector<float> raw(pcm.size());
    std::transform(pcm.begin(), pcm.end(), raw.begin(), [](int16_t x) { return static_cast<float>(x) / 32768.0F; });
    inspector eyes(MODEM_RATE, 1, {});
    eyes.hear_raw(raw.data(), raw.size());
    eyes.hear(0, pcm.data(), pcm.size());
    return eyes.finish();
}

samples low_passed(stage s, random_source& random)
{
    add_background(&s.sound, random);
    return kosc_link::low_pass(s.sound, 16000, RATE);
}

// Clipped 7 to 15 dB below full scale of a loud frame, by the recorder.
samples clipped(stage s, random_source& random)
{
    add_background(&s.sound, random);
    kosc_link::clip(&s.sound, std::sqrt(kosc_link::loud_power(s.sound)) * between(0.5, 1.4, random));
    return s.sound;
}

samples mislabelled(stage s, random_source& random)
{
    add_background(&s.sound, random);
    const double ppm = (48000.0 / 44100.0 - 1) * 1e6;
    return kosc_link::drift(s.sound, ppm, ppm, 0, 0);
}

// From where the default receiver begins to fail to where nothing is heard of the frame any more.
samples noisy(stage s, random_source& random)
{
    kosc_link::scale(&s.sound, 0.3); // room for the noise
    const double power = kosc_link::mean_power(s.sound, s.start, FRAME);
    const double variance = kosc_link::noise_variance(power, between(-15, 1, random), {BAND_LOW, BAND_HIGH}, RATE);
    add_noise(&s.sound, variance, &random);
    return s.sound;
}

samples echoing(stage s, random_source& random)
{
    const auto delay = [&] { return 60 + static_cast<size_t>(2400 * random.uniform()); };
    s.sound = kosc_link::apply_taps(
        s.sound, {{0, 1.0}, {delay(), between(0.6, 1.0, random)}, {delay(), between(0.2, 0.6, random)}});
    add_background(&s.sound, random);
    return s.sound;
}

// The recording begins, ends or falls silent within the frame.
samples cut(stage s, random_source& random)
{
    const auto begin = s.sound.begin();
    const auto share = static_cast<size_t>(between(0.15, 0.75, random) * FRAME);
    const uint64_t where = random.bits() % 3;
    if (where == 0) { // muted
        std::fill(begin + static_cast<ptrdiff_t>(s.start + FRAME - share),
                  begin + static_cast<ptrdiff_t>(s.start + FRAME), 0);
    }
    add_background(&s.sound, random);
    if (where == 1) {
        s.sound.erase(begin, begin + static_cast<ptrdiff_t>(s.start + share));
    } else if (where == 2) {
        s.sound.resize(s.start + FRAME - share);
    }
    return s.sound;
}

samples drifting(stage s, random_source& random)
{
    const double ppm = between(700, 4000, random) * (random.uniform() < 0.5 ? -1 : 1);
    s.sound = kosc_link::drift(s.sound, ppm, ppm, 0, 0);
    add_background(&s.sound, random);
    return s.sound;
}

// Digital silence, or what an open input without a microphone leaves in the lowest bit.
samples silent(stage s, random_source& random)
{
    s.sound.assign(s.sound.size(), 0.0);
    add_noise(&s.sound, between(0.0, 0.1, random), &random);
    return s.sound;
}

samples quiet(stage s, random_source& random)
{
    add_background(&s.sound, random);
    kosc_link::scale(&s.sound, 0.001);
    return s.sound;
}

// The level falls by 20 to 40 dB within the frame, as a suppressor learns it.
samples suppressed(stage s, random_source& random)
{
    add_background(&s.sound, random);
    const double db = between(20, 40, random);
    for (size_t i = s.start; i < s.sound.size(); ++i) {
        const double share = std::min(1.0, static_cast<double>(i - s.start) / FRAME);
        s.sound[i] *= std::pow(10.0, -db * share / 20.0);
    }
    return s.sound;
}

samples clean(stage s, random_source& random)
{
    add_background(&s.sound, random);
    return s.sound;
}

struct fault {
    const char* name;
    samples (*apply)(stage s, random_source& random);
    cause expected;
};

class StagedFault : public testing::TestWithParam<fault> {};

TEST_P(StagedFault, IsNamed)
{
    constexpr int CASES = KOSC_STAGED_CASES, RIGHT = CASES * 95 / 100;
    int right = 0;
    std::string wrong;
    for (int seed = 1; seed <= CASES; ++seed) {
        random_source random(static_cast<uint64_t>(seed));
        const inspection result = inspect(GetParam().apply(set_stage(random), random));
        right += result.why == GetParam().expected ? 1 : 0;
        if (result.why != GetParam().expected) {
            wrong += std::to_string(seed) + ": " + result.verdict + "\n";
        }
    }
    RecordProperty("right", right);
    EXPECT_GE(right, RIGHT) << wrong;
}

constexpr fault FAULTS[] = {
    {"LowPass", low_passed, cause::low_pass},
    {"Clipping", clipped, cause::clipping},
    {"WrongRate", mislabelled, cause::wrong_rate},
    {"Noise", noisy, cause::noise},
    {"Echo", echoing, cause::echo},
    {"Cut", cut, cause::cut},
    {"Drift", drifting, cause::drift},
    {"Silence", silent, cause::silence},
    {"Quiet", quiet, cause::quiet},
    {"Suppression", suppressed, cause::suppression},
    {"NoFault", clean, cause::none},
};
INSTANTIATE_TEST_SUITE_P(Inspect, StagedFault, testing::ValuesIn(FAULTS),
                         [](const auto& param) { return std::string(param.param.name); });

} // namespace
