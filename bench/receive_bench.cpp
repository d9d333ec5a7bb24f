// The whole receiver, in both forms, on noise and on frames: nanoseconds a sample.
#include <benchmark/benchmark.h>

#include "kosc/kosc.hpp"
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
void receive_silence_plain(benchmark::State& state)
{
    receive(state, plain_library(), std::vector<int16_t>(SOUND_SAMPLES));
}
void receive_silence(benchmark::State& state) { receive(state, fast_library(), std::vector<int16_t>(SOUND_SAMPLES)); }

// A frame, then digital silence: what the filter keeps of the frame decays to the smallest numbers there are.
std::vector<int16_t> make_frame_and_silence()
{
    std::vector<int16_t> sound = make_frames();
    std::fill(sound.begin() + 11520, sound.end(), int16_t{0});
    return sound;
}
void receive_decay_plain(benchmark::State& state) { receive(state, plain_library(), make_frame_and_silence()); }
void receive_decay(benchmark::State& state) { receive(state, fast_library(), make_frame_and_silence()); }

// Sound through a receiver of another layout: subcarriers, symbol length, interleaved tracks.
void run_layout(benchmark::State& state, const modem_library& library, const std::vector<int16_t>& sound)
{
    log_level = 0;
    soundcomm_cfg_t cfg = *soundcomm_default_cfg();
    cfg.ofdm_cfg.sc_num = static_cast<uint32_t>(state.range(0));
    cfg.ofdm_cfg.symbol_len = static_cast<uint32_t>(state.range(1));
    cfg.ofdm_cfg.sc_start_idx = cfg.ofdm_cfg.symbol_len * 3 / 8;
    const auto tracks = static_cast<uint32_t>(state.range(2));
    soundcomm_context_t* const context = library.soundcomm_init(&cfg, &cfg);
    if (!library.soundcomm_init_receive(context, soundcomm_default_rx_sync_paras(), {2, tracks, 48000})) {
        state.SkipWithError("no such layout");
    }
    constexpr uint32_t BLOCK = 4096;
    result_set_t results{};
    results.decode_type = tracks == 2 ? KOSC_DECODE_BOTH_TRACKS : KOSC_DECODE_FIRST_TRACK;
    size_t samples = 0;
    for (auto iteration : state) {
        for (size_t start = 0; start + BLOCK * tracks <= sound.size(); start += BLOCK * tracks) {
            library.soundcomm_receive(context, sound.data() + start, BLOCK, &results);
            samples += BLOCK;
        }
    }
    library.soundcomm_release(context);
    state.counters["per_sample"] =
        benchmark::Counter(static_cast<double>(samples), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

// The same noise heard in so many bands by a receiver each: what a listener to several bands costs.
void receive_bands(benchmark::State& state)
{
    log_level = 0;
    std::vector<kosc::context_ptr> receivers;
    for (const uint32_t first : {384U, 43U, 128U, 7U}) {
        soundcomm_cfg_t cfg;
        soundcomm_cfg_for_band(first, &cfg);
        if (receivers.size() < static_cast<size_t>(state.range(0))) {
            receivers.push_back(kosc::make_receiving_context(KOSC_SECOND_LOOK_ON, cfg));
        }
    }
    const std::vector<int16_t> noise = make_noise();
    constexpr uint32_t BLOCK = 4096;
    size_t samples = 0;
    for (auto iteration : state) {
        for (size_t start = 0; start + BLOCK <= noise.size(); start += BLOCK) {
            for (const kosc::context_ptr& receiver : receivers) {
                result_set_t results{};
                soundcomm_receive(receiver.get(), noise.data() + start, BLOCK, &results);
            }
            samples += BLOCK;
        }
    }
    state.counters["per_sample"] =
        benchmark::Counter(static_cast<double>(samples), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void receive_layout(benchmark::State& state) { run_layout(state, fast_library(), make_noise()); }

// Few subcarriers, whose filter takes seconds to fall silent: what silence behind a frame costs, against noise.
void receive_narrow_decay(benchmark::State& state) { run_layout(state, fast_library(), make_frame_and_silence()); }
void receive_narrow_decay_plain(benchmark::State& state)
{
    run_layout(state, plain_library(), make_frame_and_silence());
}

} // namespace

BENCHMARK(receive_noise_plain)->Arg(480)->Arg(4096)->Unit(benchmark::kMillisecond);
BENCHMARK(receive_noise)->Arg(1)->Arg(48)->Arg(480)->Arg(960)->Arg(4096)->Arg(11520)->Unit(benchmark::kMillisecond);
BENCHMARK(receive_frames_plain)->Arg(4096)->Unit(benchmark::kMillisecond);
BENCHMARK(receive_frames)->Arg(480)->Arg(4096)->Unit(benchmark::kMillisecond);
BENCHMARK(receive_silence_plain)->Arg(4096)->Unit(benchmark::kMillisecond);
BENCHMARK(receive_silence)->Arg(4096)->Unit(benchmark::kMillisecond);
BENCHMARK(receive_decay_plain)->Arg(4096)->Unit(benchmark::kMillisecond);
BENCHMARK(receive_decay)->Arg(4096)->Unit(benchmark::kMillisecond);
BENCHMARK(receive_bands)->Arg(1)->Arg(2)->Arg(4)->Unit(benchmark::kMillisecond);
BENCHMARK(receive_layout)
    ->ArgNames({"subcarriers", "symbol", "tracks"})
    ->Args({32, 1024, 1})
    ->Args({64, 1024, 1})
    ->Args({96, 1024, 1})
    ->Args({32, 512, 1})
    ->Args({64, 2048, 1})
    ->Args({64, 1024, 2})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(receive_layout)
    ->Name("receive_narrow_noise")
    ->ArgNames({"subcarriers", "symbol", "tracks"})
    ->ArgsProduct({{4, 16, 32}, {1024}, {1}})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(receive_narrow_decay)
    ->ArgNames({"subcarriers", "symbol", "tracks"})
    ->ArgsProduct({{4, 16, 32}, {1024}, {1}})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(receive_narrow_decay_plain)
    ->ArgNames({"subcarriers", "symbol", "tracks"})
    ->Args({32, 1024, 1})
    ->Unit(benchmark::kMillisecond);
