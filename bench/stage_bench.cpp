// Single stages in both forms.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include "modem_library.h"
#include "sounds.h"

namespace {

// A context of one form, prepared for reception.
class modem {
public:
    explicit modem(const modem_library& library) : library_(library)
    {
        log_level = 0;
        context = library.soundcomm_init(soundcomm_default_cfg(), soundcomm_default_cfg());
        library.soundcomm_init_receive(context, soundcomm_default_rx_sync_paras(), soundcomm_default_audio_format());
    }
    ~modem() { library_.soundcomm_release(context); }
    modem(const modem&) = delete;
    modem& operator=(const modem&) = delete;
    soundcomm_context_t* context;

private:
    const modem_library& library_;
};

void recv_sample(benchmark::State& state, const modem_library& library)
{
    const modem m{library};
    data_container* const container = soundcomm_get_datacontainer(m.context->rx_paras, 0);
    const std::vector<int16_t> noise = make_noise();
    constexpr size_t RUN = 11520;
    for (auto iteration : state) {
        for (size_t i = 0; i < RUN; ++i) {
            library.data_container_recv(container, noise[i]);
        }
        library.data_container_reset(container);
    }
    state.counters["per_sample"] = benchmark::Counter(static_cast<double>(state.iterations() * RUN),
                                                      benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void fft_1024(benchmark::State& state, const modem_library& library)
{
    std::vector<double> data(2048, 0.5);
    for (auto iteration : state) {
        // Forward and back, so that the numbers keep their size.
        library.kom_fft_complex_radix2_forward(data.data(), 1, 1024);
        library.kom_fft_complex_radix2_inverse(data.data(), 1, 1024);
        benchmark::DoNotOptimize(data.data());
    }
}

void viterbi(benchmark::State& state, const modem_library& library)
{
    constexpr uint32_t POLYNOMIALS[] = {95, 107, 81};
    conv_code_t* const code = library.conv_code_init(7, POLYNOMIALS, 3);
    std::mt19937 generator{3};
    std::vector<uint8_t> coded(786);
    std::generate(coded.begin(), coded.end(), [&] { return static_cast<uint8_t>(generator() % 2); });
    for (auto iteration : state) {
        const conv_data_t decoded = library.conv_code_decode_hard(code, coded.data(), 786, true);
        library.conv_code_free_data(decoded.data, decoded.len);
    }
    library.conv_code_release(code);
}

void decode_frame(benchmark::State& state, const modem_library& library)
{
    const modem m{library};
    const std::vector<int16_t> frames = make_frames();
    const std::vector<double> frame(frames.begin(), frames.begin() + 11520);
    uint8_t message[MESSAGE_LEN];
    for (auto iteration : state) {
        if (library.soundcomm_decode(m.context, frame.data(), 11520, message, message, MESSAGE_LEN) != 1) {
            state.SkipWithError("the frame was not decoded");
        }
    }
}

void encode_frame(benchmark::State& state, const modem_library& library)
{
    log_level = 0;
    soundcommu_handle_t* const handle = library.ko_soundcommu_init(ignore_messages, ignore_messages);
    std::vector<int16_t> frame(11520);
    const uint8_t message[MESSAGE_LEN] = {1, 2, 3};
    for (auto iteration : state) {
        library.ko_soundcommu_encode(handle, message, MESSAGE_LEN, frame.data(), 23040);
        benchmark::DoNotOptimize(frame.data());
    }
    library.ko_soundcommu_release(handle);
}

double heap_bytes()
{
    const struct mallinfo2 heap = mallinfo2();
    return static_cast<double>(heap.uordblks + heap.hblkhd);
}

void init_handle(benchmark::State& state)
{
    log_level = 0;
    double bytes = 0.0;
    for (auto iteration : state) {
        const double before = heap_bytes();
        soundcommu_handle_t* const handle = ko_soundcommu_init(ignore_messages, ignore_messages);
        bytes = heap_bytes() - before;
        ko_soundcommu_release(handle);
    }
    state.counters["bytes"] = bytes;
}

// A million decode calls on frames and what lies between them; `growth` is what the heap holds more afterwards.
void decode_calls(benchmark::State& state)
{
    log_level = 0;
    const std::vector<int16_t> sound = make_frames();
    constexpr size_t BLOCK = 480;
    soundcommu_handle_t* const handle = ko_soundcommu_init(ignore_messages, ignore_messages);
    // Once through the sound first: what is freed may stay in the allocator's caches.
    for (size_t warm = 0; warm + BLOCK <= sound.size(); warm += BLOCK) {
        ko_soundcommu_decode(handle, sound.data() + warm, 2 * BLOCK, 0);
    }
    const double before = heap_bytes();
    size_t start = 0;
    for (auto iteration : state) {
        ko_soundcommu_decode(handle, sound.data() + start, 2 * BLOCK, 0);
        start = start + 2 * BLOCK <= sound.size() ? start + BLOCK : 0;
    }
    state.counters["growth"] = heap_bytes() - before;
    ko_soundcommu_release(handle);
}

} // namespace

#define BENCHMARK_BOTH(name)                                                                                           \
    BENCHMARK_CAPTURE(name, plain, plain_library())->Unit(benchmark::kMicrosecond);                                    \
    BENCHMARK_CAPTURE(name, fast, fast_library())->Unit(benchmark::kMicrosecond)

BENCHMARK_BOTH(recv_sample);
BENCHMARK_BOTH(fft_1024);
BENCHMARK_BOTH(viterbi);
BENCHMARK_BOTH(decode_frame);
BENCHMARK_BOTH(encode_frame);
BENCHMARK(init_handle)->Unit(benchmark::kMicrosecond);
BENCHMARK(decode_calls)->Iterations(1000000)->Unit(benchmark::kMicrosecond);
