#include "audio/audio_device.h"

#include <fcntl.h>
#include <portaudio.h>
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <optional>
#include <stdexcept>

#include "audio/audio_file.h"

namespace {

constexpr uint32_t USUAL_RATES[] = {8000, 16000, 22050, 32000, 44100, kosc::SAMPLE_RATE, 96000, 192000};

// Seconds that a computer under load may take before it serves a device again.
constexpr double SAFE_LATENCY = 0.2;

const char* name_of(direction way) { return way == direction::INPUT ? "input" : "output"; }

std::string lower_case(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    return text;
}

std::optional<int> as_index(const std::string& text)
{
    int index = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, index);
    return error == std::errc{} && stop == end ? std::optional(index) : std::nullopt;
}

std::string names_of(const std::vector<audio_device>& devices)
{
    std::string names;
    for (const audio_device& device : devices) {
        names += (names.empty() ? "" : ", ") + std::to_string(device.index) + " (" + device.name + ")";
    }
    return names;
}

} // namespace

audio_system::audio_system(bool verbose) : standard_error_(dup(STDERR_FILENO))
{
    const int nowhere = verbose ? -1 : ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nowhere >= 0) {
        dup2(nowhere, STDERR_FILENO);
        close(nowhere);
    }
    const PaError error = Pa_Initialize();
    if (error != paNoError) {
        restore_standard_error();
        throw std::runtime_error(std::string("cannot start the sound system: ") + Pa_GetErrorText(error));
    }
}

audio_system::~audio_system()
{
    Pa_Terminate();
    restore_standard_error();
}

void audio_system::restore_standard_error()
{
    dup2(standard_error_, STDERR_FILENO);
    close(standard_error_);
}

void audio_system::say(const std::string& sentence) const { dprintf(standard_error_, "kosc: %s\n", sentence.c_str()); }

std::vector<audio_device> audio_system::devices() const
{
    std::vector<audio_device> found;
    for (int index = 0; index < Pa_GetDeviceCount(); ++index) {
        const PaDeviceInfo& info = *Pa_GetDeviceInfo(index);
        found.push_back({index, info.name, Pa_GetHostApiInfo(info.hostApi)->name,
                         static_cast<uint32_t>(info.maxInputChannels), static_cast<uint32_t>(info.maxOutputChannels),
                         std::max(info.defaultHighInputLatency, SAFE_LATENCY),
                         std::max(info.defaultHighOutputLatency, SAFE_LATENCY)});
    }
    return found;
}

int audio_system::default_index(direction way) const
{
    return way == direction::INPUT ? Pa_GetDefaultInputDevice() : Pa_GetDefaultOutputDevice();
}

audio_device audio_system::find(const std::string& name, direction way) const
{
    const std::optional<int> index = name.empty() ? default_index(way) : as_index(name);
    std::vector<audio_device> fitting;
    for (const audio_device& device : devices()) {
        const bool part = !index && lower_case(device.name).find(lower_case(name)) != std::string::npos;
        if (device.index == index || (part && device.channels(way) > 0)) {
            fitting.push_back(device);
        }
        if (device.name == name && device.channels(way) > 0) {
            return device;
        }
    }
    if (fitting.empty()) {
        throw std::runtime_error(std::string("there is no ") + name_of(way) + " device" +
                                 (name.empty() ? "" : " '" + name + "'") + "; kosc devices lists those there are");
    }
    if (fitting.size() > 1) {
        throw std::runtime_error("'" + name + "' is part of the names of several devices: " + names_of(fitting));
    }
    if (fitting.front().channels(way) == 0) {
        throw std::runtime_error("device " + names_of(fitting) + " has no " + name_of(way));
    }
    return fitting.front();
}

std::vector<uint32_t> audio_system::rates(const audio_device& device, direction way) const
{
    std::vector<uint32_t> taken;
    constexpr uint32_t ENOUGH_CHANNELS = 2;
    const auto channels = static_cast<int>(std::min(device.channels(way), ENOUGH_CHANNELS));
    const PaStreamParameters wanted{device.index, channels, paInt16, device.latency(way), nullptr};
    const bool input = way == direction::INPUT;
    for (const uint32_t rate : USUAL_RATES) {
        if (Pa_IsFormatSupported(input ? &wanted : nullptr, input ? nullptr : &wanted, rate) == paFormatIsSupported) {
            taken.push_back(rate);
        }
    }
    return taken;
}
