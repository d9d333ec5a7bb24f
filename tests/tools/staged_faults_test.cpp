// Recordings with one fault each, staged many times with everything else drawn anew: the inspection must name it.
#include <cmath>
#include <cstdlib>
#include <functional>
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

sound_band staged_band; // of the frames that are staged, and inspected

double between(double low, double high, random_source& random) { return low + (high - low) * random.uniform(); }

// A frame somewhere in a recording of nearly half a second, in 16-bit steps, and where it begins.
struct stage {
    samples sound;
    size_t start;
};

stage set_stage(random_source& random)
{
    const kosc::context_ptr sender = make_receiver(staged_band, KOSC_SECOND_LOOK_OFF);
    uint8_t message[28];
    for (uint8_t& byte : message) {
        byte = static_cast<uint8_t>(random.bits() >> 56);
    }
    samples frame(FRAME);
    EXPECT_EQ(soundcomm_encode(sender->tx_paras, message, sizeof message, frame.data(), FRAME), 0);
    kosc_link::scale(&frame, between(400, 5000, random) / std::sqrt(kosc_link::mean_power(frame, 0, FRAME)));
    stage s{samples(22000), 2000 + static_cast<size_t>(8000 * random.uniform())};
    std::copy(frame.begin(), frame.end(), s.sound.begin() + static_cast<ptrdiff_t>(s.start));
    return s;
}

// What the microphone and the room add to any recording: noise well below the frame, and somebody who speaks.
void add_background(samples* sound, random_source& random)
{
    const double power = kosc_link::loud_power(*sound);
    add_noise(
        sound,
        kosc_link::noise_variance(power, between(18, 35, random), {staged_band.low_hz, staged_band.high_hz}, RATE),
        &random);
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
    inspector eyes(48000, 1, {staged_band});
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
    const double variance =
        kosc_link::noise_variance(power, between(-15, 1, random), {staged_band.low_hz, staged_band.high_hz}, RATE);
    add_noise(&s.sound, variance, &random);
    return s.sound;
}

samples echoing(stage s, random_source& random)
{
    const auto delay = [&] { return 60 + static_cast<size_t>(160 * random.uniform()); };
    s.sound = kosc_link::apply_taps(
        s.sound, {{0, 1.0}, {delay(), between(0.6, 1.0, random)}, {delay(), between(0.2, 0.6, random)}});
    add_background(&s.sound, random);
    return s.sound;
}

samples arriving_twice(stage s, random_source& random)
{
    s.sound = kosc_link::apply_taps(
        s.sound, {{0, 1.0}, {350 + static_cast<size_t>(2000 * random.uniform()), between(0.7, 1.0, random)}});
    add_background(&s.sound, random);
    return s.sound;
}

samples two_senders(stage s, random_source& random)
{
    const stage other = set_stage(random);
    const double louder = std::sqrt(kosc_link::loud_power(s.sound) / kosc_link::loud_power(other.sound));
    const size_t later = s.start + 2500 - std::min<size_t>(other.start, s.start);
    for (size_t i = 0; i < FRAME && s.start + later % 6000 + i < s.sound.size(); ++i) {
        s.sound[s.start + later % 6000 + i] += louder * other.sound[other.start + i];
    }
    add_background(&s.sound, random);
    return s.sound;
}

// One sample is missing in every tenth of a second.
samples losing(stage s, random_source& random)
{
    add_background(&s.sound, random);
    for (size_t i = s.sound.size() / 4800; i > 0; --i) {
        s.sound.erase(s.sound.begin() + static_cast<ptrdiff_t>(i * 4800 - 1));
    }
    return s.sound;
}

// A block of 10 ms is played again in place of the next, within the frame.
samples stuttering(stage s, random_source& random)
{
    add_background(&s.sound, random);
    for (double& x : s.sound) {
        x = std::round(x);
    }
    const auto block = s.sound.begin() + static_cast<ptrdiff_t>(s.start + 600 + 9000 * random.uniform());
    std::copy(block, block + 480, block + 480);
    return s.sound;
}

samples too_fast(stage s, random_source& random)
{
    add_background(&s.sound, random);
    const double ppm = between(10000, 30000, random);
    return kosc_link::drift(s.sound, ppm, ppm, 0, 0);
}

// Another channel in between, of which the header does not tell.
samples interleaved(stage s, random_source& random)
{
    samples other(s.sound.size()), both;
    add_background(&s.sound, random);
    add_noise(&other, 30.0, &random);
    for (size_t i = 0; i < other.size(); ++i) {
        both.insert(both.end(), {s.sound[i], other[i]});
    }
    return both;
}

samples pumped(stage s, random_source& random)
{
    add_background(&s.sound, random);
    const double phase = 6.3 * random.uniform(), depth = between(10, 20, random);
    for (size_t i = 0; i < s.sound.size(); ++i) {
        const double cycle = std::sin(2 * kosc_link::PI * 8 * static_cast<double>(i) / RATE + phase);
        s.sound[i] *= std::pow(10.0, depth / 40 * (cycle - 1)); // downwards, or loud sound would clip
    }
    return s.sound;
}

samples with_tone(stage s, random_source& random)
{
    const double level = 3 * std::sqrt(kosc_link::loud_power(s.sound)), hz = between(18200, 20800, random);
    add_background(&s.sound, random);
    for (size_t i = 0; i < s.sound.size(); ++i) {
        s.sound[i] += level * std::sin(2 * kosc_link::PI * hz / RATE * static_cast<double>(i));
    }
    return s.sound;
}

samples none_at_all(stage, random_source&) { return {}; }

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
    const char* band = "near-ultrasonic";
};

// Else test names would hold the addresses of its members.
void PrintTo(const fault& f, std::ostream* out) { *out << f.name; }

class StagedFault : public testing::TestWithParam<fault> {};

// What is said of frames, of the recording and in words is one story.
void expect_agreement(const inspection& result)
{
    size_t found = 0, failed = 0;
    bool named = false;
    for (const candidate& c : result.candidates) {
        found += c.chance ? 0 : 1;
        failed += c.chance || c.decoded ? 0 : 1;
        named = named || (!c.chance && c.why == result.why);
        EXPECT_FALSE(!c.decoded && c.why == cause::none) << result.verdict;
    }
    EXPECT_EQ(found == 0, result.verdict.rfind("No ", 0) == 0) << result.verdict;
    EXPECT_TRUE(found == 0 || named) << result.verdict;
    EXPECT_FALSE(result.why == cause::none && (found == 0 || failed != 0)) << result.verdict;
}

TEST_P(StagedFault, IsNamed)
{
    constexpr int CASES = KOSC_STAGED_CASES, RIGHT = CASES * 95 / 100;
    ASSERT_EQ(ko_soundcommu_find_band(GetParam().band, &staged_band), 0);
    int right = 0;
    std::string wrong;
    for (int seed = 1; seed <= CASES; ++seed) {
        random_source random(static_cast<uint64_t>(seed));
        const inspection result = inspect(GetParam().apply(set_stage(random), random));
        expect_agreement(result);
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
    {"LateArrival", arriving_twice, cause::late_arrival},
    {"SeveralSenders", two_senders, cause::several_senders},
    {"LostSamples", losing, cause::lost_samples},
    {"RepeatedSamples", stuttering, cause::lost_samples},
    {"WrongSpeed", too_fast, cause::wrong_speed},
    {"MixedChannels", interleaved, cause::mixed_channels},
    {"GainControl", pumped, cause::gain_control},
    {"Tone", with_tone, cause::tone},
    {"NoSamples", none_at_all, cause::no_samples},
    {"Cut", cut, cause::cut},
    {"Drift", drifting, cause::drift},
    {"Silence", silent, cause::silence},
    {"Quiet", quiet, cause::quiet},
    {"Suppression", suppressed, cause::suppression},
    {"NoFault", clean, cause::none},
    {"AudibleEcho", echoing, cause::echo, "audible"},
    {"AudibleLateArrival", arriving_twice, cause::late_arrival, "audible"},
    {"AudibleNoise", noisy, cause::noise, "audible"},
    {"AudibleGainControl", pumped, cause::gain_control, "audible"},
    {"AudibleNoFault", clean, cause::none, "audible"},
    {"AudibleCut", cut, cause::cut, "audible"},
    {"TelephoneSuppression", suppressed, cause::suppression, "telephone"},
};
INSTANTIATE_TEST_SUITE_P(Inspect, StagedFault, testing::ValuesIn(FAULTS),
                         [](const auto& param) { return std::string(param.param.name); });

TEST(ClipMeter, CountsFlatTopsAndNothingElse)
{
    const auto sine = [](double amplitude, double hz, double i) {
        return amplitude * std::sin(2 * kosc_link::PI * hz / RATE * i);
    };
    random_source random(1);
    const std::function<double(double)> kept[] = {
        [](double) { return 0.5; },
        [&](double i) { return sine(0.5, 1000, i); },
        [&](double i) { return sine(0.5, 300, i); },
        [&](double i) { return sine(0.5, 100, i); },
        [&](double i) { return sine(0.5, 12000, i); },
        [&](double) { return std::round(6 * random.gaussian()) / 128; }, // quiet sound of 8 bits
    };
    const std::function<double(double)> cut[] = {
        [&](double i) { return std::min(sine(0.9, 1000, i), 0.5); },
        [&](double) { return std::clamp(0.5 * random.gaussian(), -0.6, 0.6); },
    };
    const auto clipped = [](const std::function<double(double)>& sound) {
        clip_meter meter;
        for (int i = 0; i < 48000; ++i) {
            const auto sample = static_cast<float>(std::round(32768.0 * sound(i)) / 32768.0);
            meter.hear(&sample, 1, 1);
        }
        meter.finish();
        return meter.total();
    };
    for (const auto& sound : kept) {
        EXPECT_EQ(clipped(sound), 0U) << &sound - kept;
    }
    for (const auto& sound : cut) {
        EXPECT_GT(clipped(sound), 5000U) << &sound - cut;
    }
}

} // namespace
