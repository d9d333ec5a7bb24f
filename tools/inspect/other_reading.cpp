#include "other_reading.h"

#include <algorithm>
#include <cmath>

#include "channels.h"
#include "frame_band.h"
#include "modem.h"
#include "resampler.h"

namespace kosc_inspect {
namespace {

using samples = std::vector<float>;

using kosc_link::FULL_SCALE;

samples every(const samples& interleaved, size_t first, size_t stride)
{
    samples channel;
    for (size_t i = first; i < interleaved.size(); i += stride) {
        channel.push_back(interleaved[i]);
    }
    return channel;
}

// The drift in millionths of a frame that decodes, if any does.
std::optional<double> drift_when_decoded(const std::vector<int16_t>& pcm, const sound_band& band)
{
    kosc::receiver_settings settings;
    settings.second_look = KOSC_SECOND_LOOK_MEASURE;
    settings.cut = true;
    kosc::receiver receiver = make_receiver(band, settings);
    std::optional<double> drift;
    const auto take = [&](const kosc::heard& frame) { drift = frame.report.quality.drift_ppm; };
    check(receiver.push(pcm.data(), pcm.size(), take));
    check(receiver.finish(take));
    return drift;
}

// Whether frames decode in one channel of so many samples a second.
bool decodes_at(const samples& in, double rate, const sound_band& band)
{
    const double pass_band = band.high_hz + (band.high_hz - band.low_hz) / 63; // a subcarrier more, for fast clocks
    const samples out = rate == MODEM_RATE ? in : resampled(in, rate, MODEM_RATE, pass_band);
    kosc_link::signal scaled(out.begin(), out.end());
    kosc_link::scale(&scaled, FULL_SCALE);
    return drift_when_decoded(kosc_link::to_pcm(scaled), band).has_value();
}

// The part with the loudest sound in the modem's band.
kosc_link::signal loudest_part(const samples& in, const sound_band& band)
{
    constexpr size_t LENGTH = size_t{4} * BAND_SAMPLES, STEP = BAND_SAMPLES / 2;
    const kosc_link::signal all(in.begin(), in.end());
    ofdm_cfg ofdm = soundcomm_default_cfg()->ofdm_cfg;
    ofdm.sc_start_idx = band.first_subcarrier;
    size_t loudest_start = 0;
    double loudest = -1.0;
    for (size_t start = 0; start < all.size(); start += STEP) {
        const size_t count = std::min<size_t>(all.size() - start, BAND_SAMPLES);
        const double power = energy_of(band_of(ofdm, all.data() + start, count), 0, BAND_SAMPLES);
        if (power > loudest) {
            loudest = power;
            loudest_start = start;
        }
    }
    const size_t begin = loudest_start - std::min<size_t>(loudest_start, BAND_SAMPLES);
    kosc_link::signal part(all.begin() + static_cast<ptrdiff_t>(begin),
                           all.begin() + static_cast<ptrdiff_t>(std::min(all.size(), begin + LENGTH)));
    kosc_link::scale(&part, FULL_SCALE);
    return part;
}

// The speed, near 1, at which frames decode: each step is within reach of the second look from the last.
std::optional<double> speed_that_decodes(const samples& in, const sound_band& band)
{
    constexpr double STEP = 0.004, NOTABLE = 0.003;
    constexpr int STEPS = 11;
    const kosc_link::signal part = loudest_part(in, band);
    for (int i = 1; i <= STEPS; ++i) {
        for (const double off : {i * STEP, -i * STEP}) {
            const double slower = (1.0 / (1.0 + off) - 1.0) * 1e6;
            const std::optional<double> rest =
                drift_when_decoded(kosc_link::to_pcm(kosc_link::drift(part, slower, slower, 0, 0)), band);
            const double speed = (1.0 + off) * (1.0 + rest.value_or(0.0) / 1e6);
            if (rest && std::fabs(speed - 1.0) > NOTABLE) {
                return speed;
            }
        }
    }
    return std::nullopt;
}

} // namespace

std::optional<other_reading> reading_that_decodes(const std::vector<float>& interleaved, uint32_t channels,
                                                  uint32_t label, const sound_band& band)
{
    const double rate = label;
    if (channels == 2 && decodes_at(interleaved, rate, band)) {
        return other_reading{misreading::mono_as_stereo, rate};
    }
    if (channels == 1 &&
        (decodes_at(every(interleaved, 0, 2), rate, band) || decodes_at(every(interleaved, 1, 2), rate, band))) {
        return other_reading{misreading::stereo_as_mono, rate};
    }
    for (uint32_t c = 0; c < channels; ++c) {
        const samples channel = every(interleaved, c, channels);
        for (const double other : {44100.0, 48000.0}) {
            if (other != rate && decodes_at(channel, other, band)) {
                return other_reading{misreading::rate, other};
            }
        }
        const std::optional<double> speed = rate == MODEM_RATE ? speed_that_decodes(channel, band) : std::nullopt;
        if (speed) {
            return other_reading{misreading::speed, rate / *speed};
        }
    }
    return std::nullopt;
}

} // namespace kosc_inspect
