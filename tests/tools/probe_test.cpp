// kosc check, on files that simulated devices recorded of its sound.
#include <sndfile.hh>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "channels.h"

namespace {

using samples = kosc_link::signal;
using kosc_link::random_source;

constexpr double RATE = 48000.0;
constexpr uint64_t SEED = 1;

// Mostly low ones.
void add_room_sounds(samples& sound, random_source& random)
{
    samples low(sound.size());
    kosc_link::add_noise(&low, 100.0 * 100.0, &random);
    low = kosc_link::low_pass(low, 2000.0, RATE);
    std::transform(sound.begin(), sound.end(), low.begin(), sound.begin(), std::plus<>());
    kosc_link::add_noise(&sound, 3.0 * 3.0, &random);
}

void laptop(samples& sound, random_source& random)
{
    kosc_link::scale(&sound, 0.1);
    sound = kosc_link::roll_off(sound, {16000.0, 21000.0}, 10.0, RATE);
    sound.insert(sound.begin(), 7000, 0.0);
    add_room_sounds(sound, random);
}

void two_clocks_in_a_room(samples& sound, random_source& random)
{
    kosc_link::scale(&sound, 0.2);
    sound = kosc_link::drift(sound, 60.0, 60.0, 0, sound.size());
    sound = kosc_link::convolve(sound, kosc_link::room_response({0.3, 0.005, 6.0, RATE}, &random));
    add_room_sounds(sound, random);
}

void too_loud(samples& sound, random_source& random)
{
    kosc_link::scale(&sound, 4.0);
    add_room_sounds(sound, random);
    kosc_link::clip(&sound, 32767.0);
}

void headset(samples& sound, random_source& random)
{
    kosc_link::scale(&sound, 0.3);
    sound = kosc_link::low_pass(sound, 16000.0, RATE);
    add_room_sounds(sound, random);
}

// The longer a sound lasts, the fainter it becomes: 20 dB in two seconds.
void echo_canceller(samples& sound, random_source& random)
{
    double envelope = 0.0, lasted = 0.0;
    for (double& sample : sound) {
        envelope += (std::abs(sample) - envelope) / 2400.0;
        lasted = std::min(lasted + (envelope > 1000.0 ? 1.0 / (2.0 * RATE) : 0.0), 1.0);
        sample *= 0.3 * std::pow(10.0, -lasted);
    }
    add_room_sounds(sound, random);
}

// While the loudspeaker sounds, the room is turned down.
void half_duplex(samples& sound, random_source& random)
{
    samples room(sound.size());
    add_room_sounds(room, random);
    double envelope = 0.0;
    for (size_t i = 0; i < sound.size(); ++i) {
        envelope += (std::abs(sound[i]) - envelope) / 480.0;
        sound[i] = 0.1 * sound[i] + (envelope > 100.0 ? 0.1 : 1.0) * room[i];
    }
}

void beside_a_power_supply(samples& sound, random_source& random)
{
    kosc_link::scale(&sound, 0.01);
    kosc_link::add_noise(&sound, 400.0 * 400.0, &random);
}

void across_the_hall(samples& sound, random_source& random)
{
    kosc_link::scale(&sound, 0.00012);
    add_room_sounds(sound, random);
}

void muted(samples& sound, random_source& random)
{
    kosc_link::scale(&sound, 0.0);
    add_room_sounds(sound, random);
}

void busy_computer(samples& sound, random_source& random)
{
    kosc_link::scale(&sound, 0.2);
    add_room_sounds(sound, random);
    for (const ptrdiff_t at : {250000, 200000, 150000}) {
        sound.erase(sound.begin() + at, sound.begin() + at + 512);
    }
}

TEST(KoscCheck, NamesWhatIsWrongWithADevice)
{
    const struct {
        const char* name;
        void (*record)(samples& sound, random_source& random);
        const char *verdict, *cause, *band;
    } devices[] = {
        {"laptop", laptop, "good", "none", "near-ultrasonic"},
        {"two clocks in a room", two_clocks_in_a_room, "good", "none", "near-ultrasonic"},
        {"too loud", too_loud, "usable", "clipping", "high"},
        {"headset", headset, "unfit", "low-pass", "high"},
        {"echo canceller", echo_canceller, "usable", "suppression", "high"},
        {"half duplex", half_duplex, "usable", "suppression", "high"},
        {"beside a power supply", beside_a_power_supply, "unfit", "noise", "none"},
        {"across the hall", across_the_hall, "unfit", "faint", "none"},
        {"muted", muted, "unfit", "nothing", "none"},
        {"busy computer", busy_computer, "usable", "lost-samples", "high"},
    };
    const std::string folder = testing::TempDir() + "kosc_check_" + std::to_string(getpid()) + "/";
    std::filesystem::create_directories(folder);
    const auto check = [&](const std::string& rest) {
        return WEXITSTATUS(std::system(("cd '" + folder + "' && '" KOSC_TOOL "' check " + rest).c_str()));
    };
    ASSERT_EQ(check("--write-signal signal.wav"), 0);
    SndfileHandle file(folder + "signal.wav");
    std::vector<int16_t> played(static_cast<size_t>(file.frames()));
    file.readf(played.data(), file.frames());
    ASSERT_EQ(check("--band voice --write-signal voice.wav"), 0);
    EXPECT_EQ(check("--band voice --recording voice.wav >out"), 0);
    EXPECT_EQ(check("--recording voice.wav >out"), 1); // its frames are not in the band that is tried
    ASSERT_EQ(check("--recording signal.wav --json >out"), 0);
    std::ifstream clean(folder + "out");
    EXPECT_EQ(nlohmann::json::parse(clean)["clipped_samples"], 0);
    for (const auto& device : devices) {
        SCOPED_TRACE(device.name);
        random_source random(SEED);
        samples sound(played.begin(), played.end());
        device.record(sound, random);
        const std::vector<int16_t> pcm = kosc_link::to_pcm(sound);
        SndfileHandle(folder + "a.wav", SFM_WRITE, SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, static_cast<int>(RATE))
            .writef(pcm.data(), static_cast<sf_count_t>(pcm.size()));
        EXPECT_EQ(check("--recording a.wav --json >out"), std::string(device.verdict) == "unfit" ? 1 : 0);
        std::ifstream output(folder + "out");
        const auto report = nlohmann::json::parse(output);
        EXPECT_EQ(report["verdict"].get<std::string>(), device.verdict) << report;
        EXPECT_EQ(report["cause"].get<std::string>(), device.cause) << report;
        EXPECT_EQ(report["best_band"].is_null() ? "none" : report["best_band"].get<std::string>(), device.band)
            << report;
    }
    std::filesystem::remove_all(folder);
}

} // namespace
