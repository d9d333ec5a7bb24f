// What a microphone can hear: the input is a list of steps that build a signal out of real frames, noise, tones and
// raw samples, damage it, and hand it to a channel in blocks of any size while allocations fail.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <vector>

#include "failing_malloc.h"
#include "input.h"
#include "kosc/kosc.h"
#include "log_sink.h"

namespace {

constexpr size_t FRAME = 11520;
constexpr size_t MOST_SAMPLES = 3 * FRAME; // that one input may play, so that it takes milliseconds
constexpr uint32_t MESSAGE_BYTES = 28;
constexpr size_t MESSAGES = 4;
constexpr int FULL_SCALE = 32767;

using pcm = std::vector<int16_t>;
using message = std::array<uint8_t, MESSAGE_BYTES>;

message known_message(size_t which)
{
    message text{};
    for (size_t i = 0; i < text.size(); ++i) {
        text[i] = static_cast<uint8_t>(which == 0 ? 0 : 37 * i * which + 11 * which);
    }
    return text;
}

uint32_t heard[2]; // by channel; messages since the last reset

void receive(int channel, const decode_result_t* results, uint32_t count)
{
    FUZZ_CHECK(results != nullptr && count != 0);
    for (uint32_t i = 0; i < count; ++i) {
        FUZZ_CHECK(results[i].msg != nullptr && results[i].len == MESSAGE_BYTES);
        bool known = false;
        for (size_t m = 0; m < MESSAGES; ++m) {
            known = known || std::memcmp(results[i].msg, known_message(m).data(), MESSAGE_BYTES) == 0;
        }
        FUZZ_CHECK(known); // two CRC-16 stand before a message that nobody sent
        ++heard[channel];
    }
}

// First subcarriers: the built-in one, telephone, voice, and the highest there is.
constexpr uint32_t BANDS[] = {384, 7, 43, 438};
uint32_t band; // index of the one that this input uses

soundcommu_handle_t* make_handle()
{
    if (band == 0) {
        return ko_soundcommu_init([](const decode_result_t* r, uint32_t n) { receive(0, r, n); },
                                  [](const decode_result_t* r, uint32_t n) { receive(1, r, n); });
    }
    ko_soundcommu_options_t options;
    ko_soundcommu_default_options(&options, sizeof options);
    options.first_subcarrier = BANDS[band];
    options.on_messages = [](const decode_result_t* r, uint32_t n, uint32_t channel, void*) {
        receive(static_cast<int>(channel), r, n);
    };
    return ko_soundcommu_init_with(&options);
}

std::vector<pcm> make_frames()
{
    std::vector<pcm> made(MESSAGES, pcm(FRAME));
    soundcommu_handle_t* const sender = make_handle();
    for (size_t m = 0; m < MESSAGES; ++m) {
        FUZZ_CHECK(ko_soundcommu_encode(sender, known_message(m).data(), MESSAGE_BYTES, made[m].data(),
                                        FRAME * sizeof(int16_t)) == 0);
    }
    ko_soundcommu_release(sender);
    return made;
}

const pcm& known_frame(size_t which)
{
    static std::array<std::vector<pcm>, std::size(BANDS)> frames;
    if (frames[band].empty()) {
        frames[band] = make_frames();
    }
    return frames[band][which % MESSAGES];
}

int16_t clip(double value) { return static_cast<int16_t>(std::clamp(value, -FULL_SCALE - 1.0, FULL_SCALE + 0.0)); }

// The signal heard at another speed, by linear interpolation.
pcm resample(const pcm& signal, double ratio)
{
    pcm out;
    for (double at = 0; at + 1 < static_cast<double>(signal.size()) && out.size() < 2 * FRAME; at += ratio) {
        const auto i = static_cast<size_t>(at);
        const double share = at - static_cast<double>(i);
        out.push_back(clip((1 - share) * signal[i] + share * signal[i + 1]));
    }
    return out;
}

void add_noise(pcm* signal, fuzz_input* in)
{
    const uint32_t level = in->take<uint16_t>();
    uint32_t seed = in->byte();
    for (int16_t& sample : *signal) {
        seed = seed * 1664525U + 1013904223U;
        sample = clip(sample + (static_cast<double>(seed >> 8) / (1 << 23) - 1) * level);
    }
}

void add_tone(pcm* signal, fuzz_input* in)
{
    const double frequency = in->take<uint16_t>() / 20861.0; // up to half the sample rate, in radians a sample
    const double level = in->take<uint16_t>();
    for (size_t i = 0; i < signal->size(); ++i) {
        (*signal)[i] = clip((*signal)[i] + level * std::sin(frequency * static_cast<double>(i)));
    }
}

void scale(pcm* signal, double gain)
{
    for (int16_t& sample : *signal) {
        sample = clip(gain * sample);
    }
}

struct listener {
    soundcommu_handle_t* handle;
    size_t played;
    pcm signal;

    // Plays the first samples of the signal, in blocks of one size; 0 plays nothing.
    void play(fuzz_input* in)
    {
        const int channel = in->byte() % 2;
        const size_t block = std::min<size_t>(1 + in->take<uint16_t>(), MOST_SAMPLES);
        // Tiny blocks cost a search each.
        const size_t end = std::min({signal.size(), MOST_SAMPLES - std::min(played, MOST_SAMPLES), 400 * block});
        for (size_t at = 0; at < end; at += block) {
            const pcm piece(signal.begin() + static_cast<ptrdiff_t>(at),
                            signal.begin() + static_cast<ptrdiff_t>(std::min(at + block, end)));
            const int result =
                ko_soundcommu_decode(handle, piece.data(), static_cast<int>(piece.size() * sizeof(int16_t)), channel);
            FUZZ_CHECK(result == 0 || (result == -1 && allocation_failed()));
        }
        played += end;
        signal.erase(signal.begin(), signal.begin() + static_cast<ptrdiff_t>(end));
    }

    // Second look and crowd, in this order, or just the former, under a crowd that may be there.
    void configure(uint32_t setting)
    {
        if (setting % 16 < 2) {
            ko_soundcommu_config_second_look(handle, setting % 2);
            return;
        }
        const bool second_look = ko_soundcommu_config_second_look(handle, setting % 2) == 0 && setting % 2 != 0;
        const uint32_t crowd = setting / 2 % 4;
        const bool done = ko_soundcommu_config_crowd(handle, crowd) == 0;
        FUZZ_CHECK(crowd == 0 ? done : !done || (second_look && crowd < 3));
        FUZZ_CHECK(done || !second_look || crowd == 3 || allocation_failed());
    }

    // Calls that have to be refused.
    void misuse(fuzz_input* in)
    {
        int16_t samples[2] = {1, 2};
        uint8_t text[MESSAGE_BYTES] = {};
        const auto number = in->take<int32_t>();
        const bool odd = number < 1 || number % 2 != 0;
        FUZZ_CHECK(ko_soundcommu_decode(nullptr, samples, number, 0) == -1);
        FUZZ_CHECK(ko_soundcommu_decode(handle, nullptr, number, 0) == -1);
        FUZZ_CHECK(!odd || ko_soundcommu_decode(handle, samples, number, 1) == -1);
        FUZZ_CHECK(number == 0 || number == 1 || ko_soundcommu_decode(handle, samples, 2, number) == -1);
        const auto bytes = static_cast<uint32_t>(number);
        FUZZ_CHECK(bytes / 2 == FRAME || ko_soundcommu_encode(handle, text, MESSAGE_BYTES, samples, bytes) == -1);
        FUZZ_CHECK(bytes == MESSAGE_BYTES || ko_soundcommu_encode(handle, text, bytes, samples, 2 * FRAME) == -1);
    }

    void append_constant(fuzz_input* in)
    {
        const uint32_t count = in->below(FRAME);
        append(pcm(count, in->take<int16_t>()));
    }

    void append(const pcm& more) { signal.insert(signal.end(), more.begin(), more.end()); }

    // Appends a frame, or lays it over the end of what is there, as another sender would.
    void send(fuzz_input* in)
    {
        const uint32_t how = in->byte();
        const pcm& frame = known_frame(how);
        const size_t over = how < 128 ? 0 : std::min<size_t>(in->below(FRAME + 1), signal.size());
        const double gain = how < 128 ? 1.0 : 1.0 / (1 + in->byte() % 8);
        const size_t from = signal.size() - over;
        signal.resize(from + FRAME);
        for (size_t i = 0; i < FRAME; ++i) {
            signal[from + i] = clip(signal[from + i] + gain * frame[i]);
        }
    }

    void step(fuzz_input* in);
};

// Part of a frame, from a place on.
pcm take_part(fuzz_input* in)
{
    const pcm& frame = known_frame(in->byte());
    const auto from = static_cast<ptrdiff_t>(in->below(FRAME));
    return {frame.begin() + from, frame.begin() + from + static_cast<ptrdiff_t>(in->below(FRAME)) % (FRAME - from)};
}

void change_samples(fuzz_input* in, pcm* signal)
{
    size_t at = in->take<uint16_t>();
    for (uint32_t left = in->byte(); left > 0 && at < signal->size(); --left) {
        (*signal)[at] = in->take<int16_t>();
        at += 1 + in->byte();
    }
}

void listener::step(fuzz_input* in)
{
    switch (in->byte() % 14) {
    case 0:
    case 1:
        send(in);
        break;
    case 2:
        append(take_part(in));
        break;
    case 3:
        append_constant(in);
        break;
    case 4:
        for (uint32_t left = in->byte(); left > 0; --left) {
            signal.push_back(in->take<int16_t>());
        }
        break;
    case 5:
        add_noise(&signal, in);
        break;
    case 6:
        add_tone(&signal, in);
        break;
    case 7:
        signal = resample(signal, 1 + in->take<int16_t>() / 1e6);
        break;
    case 8:
        scale(&signal, in->take<int16_t>() / 4096.0);
        break;
    case 9:
        change_samples(in, &signal);
        break;
    case 10: {
        const uint8_t modes = in->byte();
        configure(modes);
        ko_soundcommu_config_combining(handle, modes >> 5 & 3);
        break;
    }
    case 11:
        misuse(in);
        break;
    default:
        play(in);
    }
    signal.resize(std::min(signal.size(), 3 * FRAME));
}

// Whatever was heard before, and whatever failed: silence, a frame and silence again yield its message.
void expect_next_frame(soundcommu_handle_t* handle, int channel)
{
    ko_soundcommu_config_combining(handle, 0); // which may still deliver what was lost before
    const pcm& frame = known_frame(1);
    pcm sound(4 * FRAME, 0);
    std::copy(frame.begin(), frame.end(), sound.begin() + 2 * FRAME);
    const auto bytes = static_cast<int>(2 * FRAME * sizeof(int16_t));
    FUZZ_CHECK(ko_soundcommu_decode(handle, sound.data(), bytes, channel) == 0);
    heard[channel] = 0;
    FUZZ_CHECK(ko_soundcommu_decode(handle, &sound[2 * FRAME], bytes, channel) == 0);
    FUZZ_CHECK(heard[channel] == 1);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    fuzz_input in(data, size);
    const uint32_t settings = in.byte();
    band = settings >> 6;
    set_up_log(0, false, false);
    known_frame(0);
    set_up_log(in.byte() % 5, (settings & 1) != 0, (settings & 2) != 0);
    fail_allocations(&in, (settings & 4) != 0);
    soundcommu_handle_t* const handle = make_handle();
    FUZZ_CHECK(handle != nullptr || allocation_failed());
    if (handle != nullptr) {
        ko_soundcommu_config_second_look(handle, settings >> 3 & 1);
        listener ear{handle, 0, {}};
        while (in.more()) {
            ear.step(&in);
        }
        allow_allocations();
        if ((settings & 16) != 0) {
            expect_next_frame(handle, settings >> 5 & 1);
        }
        ko_soundcommu_release(handle);
    }
    allow_allocations();
    return 0;
}
