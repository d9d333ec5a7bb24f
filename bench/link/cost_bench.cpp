// What a second look costs, next to the default decoding of the same frame. Frames lie in noise in which the default
// receiver fails; at -6 dB the second look fails too, after all its attempts.
#include <malloc.h>

#include <cmath>

#include <benchmark/benchmark.h>

#include "channels.h"
#include "kosc/kosc.hpp"

namespace {

using kosc_link::signal; // not the C library's

constexpr uint32_t FRAME_LEN = 11520;
constexpr uint32_t MSG_LEN = 28;

struct modem {
    kosc::context_ptr ctx = kosc::make_receiving_context(KOSC_SECOND_LOOK_ON);

    // A frame in noise whose power in the subcarriers' band is `snr_db` below its own.
    signal frame(double snr_db) const
    {
        const uint8_t message[MSG_LEN] = {1, 2, 3};
        signal sound(FRAME_LEN);
        soundcomm_encode(ctx->tx_paras, message, MSG_LEN, sound.data(), FRAME_LEN);
        const double power = kosc_link::mean_power(sound, 0, FRAME_LEN);
        kosc_link::random_source random{1};
        kosc_link::add_noise(&sound, kosc_link::noise_variance(power, snr_db, kosc_link::NEAR_ULTRASONIC, 48000),
                             &random);
        return sound;
    }
};

void decode_default(benchmark::State& state)
{
    log_level = 0;
    const modem m;
    const signal sound = m.frame(static_cast<double>(state.range(0)));
    for (auto iteration : state) {
        benchmark::DoNotOptimize(soundcomm_decode(m.ctx.get(), sound.data(), FRAME_LEN, nullptr, nullptr, 0));
    }
}

void decode_second_look(benchmark::State& state)
{
    log_level = 0;
    const modem m;
    const signal sound = m.frame(static_cast<double>(state.range(0)));
    frame_quality_t quality{};
    for (auto iteration : state) {
        soundcomm_decode_second_look(m.ctx.get(), sound.data(), FRAME_LEN, nullptr, 0, &quality);
    }
    state.counters["attempts"] = quality.attempts;
    state.counters["decoded"] = quality.decoded ? 1 : 0;
}

void switch_on(benchmark::State& state)
{
    log_level = 0;
    const kosc::context_ptr owner = kosc::make_receiving_context();
    soundcomm_context_t* const ctx = owner.get();
    const size_t before = mallinfo2().uordblks;
    soundcomm_config_second_look(ctx, KOSC_SECOND_LOOK_ON);
    state.counters["bytes"] = static_cast<double>(mallinfo2().uordblks - before);
    for (auto iteration : state) {
        soundcomm_config_second_look(ctx, KOSC_SECOND_LOOK_OFF);
        soundcomm_config_second_look(ctx, KOSC_SECOND_LOOK_ON);
    }
}

// With everything that it grows and keeps for one track.
void switch_crowd_on(benchmark::State& state)
{
    log_level = 0;
    const kosc::context_ptr owner = kosc::make_receiving_context(KOSC_SECOND_LOOK_ON);
    const auto held = [] { return mallinfo2().uordblks + mallinfo2().hblkhd; }; // large blocks are mapped
    const size_t before = held();
    soundcomm_config_crowd(owner.get(), KOSC_CROWD_CANCEL);
    state.counters["bytes"] = static_cast<double>(held() - before);
    for (auto iteration : state) {
        soundcomm_config_crowd(owner.get(), KOSC_CROWD_OFF);
        soundcomm_config_crowd(owner.get(), KOSC_CROWD_CANCEL);
    }
}

} // namespace

BENCHMARK(decode_default)->Arg(2)->Arg(-6)->Unit(benchmark::kMillisecond);
BENCHMARK(decode_second_look)->Arg(2)->Arg(-2)->Arg(-6)->Unit(benchmark::kMillisecond);
BENCHMARK(switch_on)->Unit(benchmark::kMillisecond);
BENCHMARK(switch_crowd_on)->Unit(benchmark::kMillisecond);
