// Talks and listens at once through the default sound device, as an app does: plays a message every second, prints what
// it hears on either recorded channel, and ends after the given number of seconds.
//     duplex "text of up to 28 bytes" 10
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <kosc/kosc.h>
#include <portaudio.h>

namespace {

constexpr unsigned CHANNELS = 2;
constexpr size_t MESSAGE_BYTES = 28;
constexpr unsigned long BLOCK = 480; // 10 ms

// The sound thread must never wait: it plays from an array that does not change, and leaves what was recorded in a ring
// from which the main thread takes it.
struct sound {
    std::vector<int16_t> frame;
    size_t period; // samples from one frame's start to the next
    size_t played = 0;
    std::vector<int16_t> ring; // whole blocks of interleaved channels
    std::atomic<size_t> written{0};
    std::atomic<size_t> read{0};
    std::atomic<unsigned> lost{0};
};

int on_sound(const void* input, void* output, unsigned long count, const PaStreamCallbackTimeInfo*,
             PaStreamCallbackFlags, void* user)
{
    auto& s = *static_cast<sound*>(user);
    auto* const out = static_cast<int16_t*>(output);
    for (unsigned long i = 0; i < count; ++i, s.played = (s.played + 1) % s.period) {
        out[i] = s.played < s.frame.size() ? s.frame[s.played] : int16_t{0};
    }
    const size_t at = s.written.load(std::memory_order_relaxed);
    if (input == nullptr || at + CHANNELS * count - s.read.load(std::memory_order_acquire) > s.ring.size()) {
        ++s.lost;
        return paContinue;
    }
    for (size_t i = 0; i < CHANNELS * count; ++i) {
        s.ring[(at + i) % s.ring.size()] = static_cast<const int16_t*>(input)[i];
    }
    s.written.store(at + CHANNELS * count, std::memory_order_release);
    return paContinue;
}

void print(unsigned channel, const decode_result_t* results, uint32_t count)
{
    for (uint32_t i = 0; i < count; ++i) {
        std::printf("channel %u: %.*s\n", channel, static_cast<int>(results[i].len),
                    reinterpret_cast<const char*>(results[i].msg));
        std::fflush(stdout);
    }
}

// Decodes what the ring holds, channel by channel.
bool listen(soundcommu_handle_t* modem, sound& s)
{
    while (s.written.load(std::memory_order_acquire) - s.read >= CHANNELS * BLOCK) {
        int16_t block[CHANNELS][BLOCK];
        for (size_t i = 0; i < CHANNELS * BLOCK; ++i) {
            block[i % CHANNELS][i / CHANNELS] = s.ring[(s.read + i) % s.ring.size()];
        }
        s.read += CHANNELS * BLOCK;
        for (unsigned channel = 0; channel < CHANNELS; ++channel) {
            if (ko_soundcommu_decode(modem, block[channel], sizeof block[channel], static_cast<int>(channel)) != 0) {
                return false;
            }
        }
    }
    return true;
}

int fail(PaError error)
{
    std::fprintf(stderr, "duplex: %s\n", Pa_GetErrorText(error));
    Pa_Terminate();
    return EXIT_FAILURE;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3 || std::strlen(argv[1]) > MESSAGE_BYTES || std::atoi(argv[2]) < 1) {
        std::fprintf(stderr, "use: duplex \"text of up to 28 bytes\" seconds\n");
        return 2;
    }
    ko_soundcommu_register_log([](const char* line) { std::fputs(line, stderr); });
    log_level = KOSC_LEVEL_WARN;
    audio_para_t play, record;
    soundcommu_handle_t* const modem =
        ko_soundcommu_init([](const decode_result_t* r, uint32_t count) { print(0, r, count); },
                           [](const decode_result_t* r, uint32_t count) { print(1, r, count); });
    uint8_t message[MESSAGE_BYTES] = {};
    std::memcpy(message, argv[1], std::strlen(argv[1]));
    if (modem == nullptr || ko_soundcommu_get_audio_para(&play, &record) != 0) {
        return EXIT_FAILURE;
    }
    sound s{std::vector<int16_t>(play.frame_bytes / 2), play.sample_rate, 0,
            std::vector<int16_t>(CHANNELS * BLOCK * 100)};
    if (ko_soundcommu_encode(modem, message, MESSAGE_BYTES, s.frame.data(), play.frame_bytes) != 0) {
        return EXIT_FAILURE;
    }
    PaStream* stream = nullptr;
    PaError error = Pa_Initialize();
    if (error == paNoError) {
        error = Pa_OpenDefaultStream(&stream, static_cast<int>(record.channel_num), static_cast<int>(play.channel_num),
                                     paInt16, record.sample_rate, BLOCK, on_sound, &s);
    }
    if (error != paNoError || (error = Pa_StartStream(stream)) != paNoError) {
        ko_soundcommu_release(modem);
        return fail(error);
    }
    bool decoded = true;
    for (int left = std::atoi(argv[2]) * 100; decoded && left > 0; --left) {
        Pa_Sleep(10);
        decoded = listen(modem, s);
    }
    Pa_CloseStream(stream);
    Pa_Terminate();
    ko_soundcommu_release(modem);
    if (s.lost != 0) {
        std::fprintf(stderr, "duplex: %u blocks came faster than they were decoded\n", s.lost.load());
    }
    return decoded ? EXIT_SUCCESS : EXIT_FAILURE;
}
