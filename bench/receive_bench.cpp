// The whole receiver, in both forms, on noise and on frames: nanoseconds a sample.
#include <benchmark/benchmark.h>

#include "modem_library.h"
#include "sounds.h"

namespace {

void receive(benchmark::State& state, const modem_library& library, const std::vector<int16_t>& sound)
{
    log_level = 0;
    const auto block = static_cast<size_t>(state.range(0));
    soundcommu_handle_t* const handle = library.ko_soundcommu_init(ignore_messages, ignore_messages);
    for (auto iteration : state) {
        for (size_t start = 0; start + block <= sound.size(); start += block) {
            library.ko_soundcommu_decode(handle, sound.data() + start, static_cast<int>(2 * block), 0);
        }
    }
    library.ko_soundcommu_release(handle);
    const auto samples = static_cast<double>(state.iterations() * (sound.size() / block * block));
    state.counters["per_sample"] =
        benchmark::Counter(samples, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    state.counters["times_real_time"] = benchmark::Counter(samples / 48000.0, benchmark::Counter::kIsRate);
}

void receive_noise_plain(benchmark::State& state) { receive(state, plain_library(), make_noise()); }
void receive_noise(benchmark::State& state) { receive(state, fast_library(), make_noise()); }
void receive_frames_plain(benchmark::State& state) { receive(state, plain_library(), make_frames()); }
void receive_frames(benchmark::State& state) { receive(state, fast_library(), make_frames()); }
void receive_silence(benchmark::State& state) { receive(state, fast_library(), std::vector<int16_t>(SOUND_SAMPLES)); }

} // namespace

BENCHMARK(receive_noise_plain)->Arg(480)->Arg(4096)->Unit(benchmark::kMillisecond);
BENCHMARK(receive_noise)->Arg(1)->Arg(48)->Arg(480)->Arg(960)->Arg(4096)->Arg(11520)->Unit(benchmark::kMillisecond);
BENCHMARK(receive_frames_plain)->Arg(4096)->Unit(benchmark::kMillisecond);
BENCHMARK(receive_frames)->Arg(480)->Arg(4096)->Unit(benchmark::kMillisecond);
BENCHMARK(receive_silence)->Arg(4096)->Unit(benchmark::kMillisecond);
