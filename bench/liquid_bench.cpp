// liquid-dsp's OFDM frame receiver at the same work: the same noise, and as many frames of as many bytes, with as many
// carriers in the same band. A program of its own, because both libraries have functions of the same names.
#include <complex>

#include <benchmark/benchmark.h>
#include <liquid/liquid.h>

#include "noise.h"

namespace {

constexpr unsigned CARRIERS = 64;
constexpr unsigned PREFIX = 16;
constexpr unsigned DECIMATION = 16; // 64 carriers 46.875 Hz apart fill 3000 Hz
constexpr float STOP_BAND_DB = 60.0F;
constexpr unsigned FILTER_DELAY = 8;
constexpr float CARRIER = 2.0F * 3.14159265F * 19476.5625F / 48000.0F; // middle of the band

using baseband = std::vector<std::complex<float>>;

int count_frame(unsigned char*, int header_valid, unsigned char*, unsigned, int payload_valid, framesyncstats_s,
                void* count)
{
    *static_cast<int*>(count) += header_valid != 0 && payload_valid != 0 ? 1 : 0;
    return 0;
}

// The 28-byte frames of liquid's flexible OFDM framing, QPSK under the Hamming code that Debian builds it with, mixed
// up to the band.
std::vector<int16_t> make_liquid_frames(size_t frames)
{
    ofdmflexframegenprops_s properties;
    ofdmflexframegenprops_init_default(&properties);
    properties.check = LIQUID_CRC_32;
    properties.fec0 = LIQUID_FEC_HAMMING128;
    properties.fec1 = LIQUID_FEC_NONE;
    properties.mod_scheme = LIQUID_MODEM_QPSK;
    const ofdmflexframegen generator = ofdmflexframegen_create(CARRIERS, PREFIX, 0, nullptr, &properties);
    const firinterp_crcf interpolator = firinterp_crcf_create_kaiser(DECIMATION, FILTER_DELAY, STOP_BAND_DB);
    const nco_crcf mixer = nco_crcf_create(LIQUID_NCO);
    nco_crcf_set_frequency(mixer, CARRIER);
    std::vector<int16_t> sound;
    for (size_t frame = 0; frame < frames; ++frame) {
        unsigned char header[8] = {};
        unsigned char payload[MESSAGE_LEN] = {static_cast<unsigned char>(frame)};
        ofdmflexframegen_assemble(generator, header, payload, MESSAGE_LEN);
        baseband symbol(CARRIERS + PREFIX);
        for (int last = 0; last == 0;) {
            last = ofdmflexframegen_write(generator, symbol.data(), static_cast<unsigned>(symbol.size()));
            for (const auto& value : symbol) {
                baseband up(DECIMATION);
                firinterp_crcf_execute(interpolator, value, up.data());
                for (auto& sample : up) {
                    std::complex<float> mixed;
                    nco_crcf_mix_up(mixer, sample, &mixed);
                    nco_crcf_step(mixer);
                    sound.push_back(static_cast<int16_t>(std::lround(6000.0F * mixed.real())));
                }
            }
        }
    }
    ofdmflexframegen_destroy(generator);
    firinterp_crcf_destroy(interpolator);
    nco_crcf_destroy(mixer);
    sound.resize(sound.size() + size_t{DECIMATION} * (4 * FILTER_DELAY + CARRIERS));
    return sound;
}

void receive_liquid(benchmark::State& state, const std::vector<int16_t>& sound, int expected_frames)
{
    int heard = 0;
    const ofdmflexframesync receiver = ofdmflexframesync_create(CARRIERS, PREFIX, 0, nullptr, count_frame, &heard);
    const firdecim_crcf decimator = firdecim_crcf_create_kaiser(DECIMATION, FILTER_DELAY, STOP_BAND_DB);
    const nco_crcf mixer = nco_crcf_create(LIQUID_NCO);
    nco_crcf_set_frequency(mixer, CARRIER);
    for (auto iteration : state) {
        heard = 0;
        ofdmflexframesync_reset(receiver);
        for (size_t start = 0; start + DECIMATION <= sound.size(); start += DECIMATION) {
            std::complex<float> mixed[DECIMATION];
            for (unsigned i = 0; i < DECIMATION; ++i) {
                nco_crcf_mix_down(mixer, static_cast<float>(sound[start + i]) / 32768.0F, &mixed[i]);
                nco_crcf_step(mixer);
            }
            std::complex<float> sample;
            firdecim_crcf_execute(decimator, mixed, &sample);
            ofdmflexframesync_execute(receiver, &sample, 1);
        }
    }
    if (heard != expected_frames) {
        state.SkipWithError("liquid-dsp missed frames");
    }
    ofdmflexframesync_destroy(receiver);
    firdecim_crcf_destroy(decimator);
    nco_crcf_destroy(mixer);
    state.counters["per_sample"] = benchmark::Counter(static_cast<double>(state.iterations() * sound.size()),
                                                      benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    state.counters["samples"] = static_cast<double>(sound.size());
}

void receive_noise_liquid(benchmark::State& state) { receive_liquid(state, make_noise(), 0); }
void receive_frames_liquid(benchmark::State& state)
{
    constexpr int FRAMES = FRAME_COUNT;
    receive_liquid(state, make_liquid_frames(FRAMES), FRAMES);
}

} // namespace

BENCHMARK(receive_noise_liquid)->Unit(benchmark::kMillisecond);
BENCHMARK(receive_frames_liquid)->Unit(benchmark::kMillisecond);
