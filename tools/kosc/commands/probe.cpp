#include "commands/probe.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <optional>
#include <string>

#include "audio/audio_file.h"
#include "audio/frame_sound.h"
#include "channels.h"
#include "clipping.h"
#include "commands/listener.h"
#include "commands/message_text.h"
#include "power_spectrum.h"
#include "transform.h"

using namespace kosc_inspect;

namespace {

using kosc_link::complex_signal;
using kosc_link::FULL_SCALE;
using kosc_link::power_of_two_from;
using kosc_link::signal;
using kosc_link::transform;

constexpr size_t RATE = kosc::SAMPLE_RATE;
constexpr double AUDIBLE_LOW = 3000.0, AUDIBLE_HIGH = 14000.0;

// The sound's parts, in samples.
constexpr size_t SILENCE = RATE * 6 / 10;
constexpr size_t SWEEP = 2 * RATE;
constexpr size_t REST = RATE * 3 / 10; // behind each sweep
constexpr size_t FRAME = kosc::FRAME_SAMPLES;
constexpr size_t FRAME_DISTANCE = RATE * 4 / 10;
constexpr size_t FIRST_FRAME = SILENCE + SWEEP + REST;
constexpr size_t SECOND_SWEEP = FIRST_FRAME + PROBE_FRAMES * FRAME_DISTANCE;
constexpr size_t SWEEP_DISTANCE = SECOND_SWEEP - SILENCE;
constexpr size_t PROBE = SECOND_SWEEP + SWEEP + SILENCE;

message_bytes frame_message(uint32_t number)
{
    return message_from_text("kosc check frame " + std::to_string(number + 1), soundcomm_default_cfg()->msg_byte_len);
}

// A linear sweep, faded in and out.
signal sweep()
{
    constexpr double LOW = 150.0, HIGH = 22500.0, AMPLITUDE = 0.5;
    constexpr size_t FADE = RATE / 100;
    signal sound(SWEEP);
    for (size_t i = 0; i < SWEEP; ++i) {
        const double seconds = static_cast<double>(i) / RATE;
        const double slope = (HIGH - LOW) / (static_cast<double>(SWEEP) / RATE);
        const double edge = static_cast<double>(std::min({i, SWEEP - 1 - i, FADE})) / FADE;
        sound[i] = AMPLITUDE * edge * std::sin(2.0 * kosc_link::PI * (LOW + 0.5 * slope * seconds) * seconds);
    }
    return sound;
}

signal scaled(const std::vector<int16_t>& pcm)
{
    signal samples(pcm.size());
    std::transform(pcm.begin(), pcm.end(), samples.begin(), [](int16_t sample) { return sample / FULL_SCALE; });
    return samples;
}

// The spectrum of `samples` from `start` on, where what lies outside of them counts as silence.
complex_signal spectrum_of(const signal& samples, ptrdiff_t start, size_t count, size_t size)
{
    complex_signal data(size);
    for (size_t i = 0; i < count; ++i) {
        const ptrdiff_t place = start + static_cast<ptrdiff_t>(i);
        if (place >= 0 && place < static_cast<ptrdiff_t>(samples.size())) {
            data[i] = samples[static_cast<size_t>(place)];
        }
    }
    transform(&data, true);
    return data;
}

struct found_sweeps {
    std::optional<ptrdiff_t> first, second; // where they begin
    bool clear = false;                     // the stronger one stands far out of the noise
};

// Matched filter: magnitudes of the correlation with the sweep, at each place of the recording.
signal correlation(const signal& recording)
{
    const size_t size = power_of_two_from(recording.size() + SWEEP);
    complex_signal data = spectrum_of(recording, 0, recording.size(), size);
    const complex_signal pattern = spectrum_of(sweep(), 0, SWEEP, size);
    for (size_t k = 0; k < size; ++k) {
        data[k] *= std::conj(pattern[k]);
    }
    transform(&data, false);
    signal magnitudes(recording.size());
    std::transform(data.begin(), data.begin() + static_cast<ptrdiff_t>(magnitudes.size()), magnitudes.begin(),
                   [](const std::complex<double>& value) { return std::abs(value.real()); });
    return magnitudes;
}

// The largest value around `centre`, if it stands out.
std::optional<ptrdiff_t> peak_near(const signal& values, ptrdiff_t centre, ptrdiff_t reach, double least)
{
    const ptrdiff_t begin = std::max<ptrdiff_t>(centre - reach, 0);
    const ptrdiff_t end = std::min<ptrdiff_t>(centre + reach + 1, static_cast<ptrdiff_t>(values.size()));
    if (begin >= end) {
        return std::nullopt;
    }
    const auto peak = std::max_element(values.begin() + begin, values.begin() + end);
    return *peak > least ? std::optional(peak - values.begin()) : std::nullopt;
}

found_sweeps find_sweeps(const signal& recording)
{
    // Of the noise. Its largest value in a minute stays below the first with a probability of 1e-9, and near a place
    // that is known, below the second with one of 1e-3: tails of the normal distribution.
    constexpr double DEVIATIONS = 8.0, DEVIATIONS_NEAR = 5.5;
    // Far enough for the samples that a device may lose or repeat.
    constexpr ptrdiff_t REACH = RATE / 5;
    const auto distance = static_cast<ptrdiff_t>(SWEEP_DISTANCE);
    const signal values = correlation(recording);
    const double deviation = std::sqrt(kosc_link::mean_power(values, 0, values.size()));
    const auto size = static_cast<ptrdiff_t>(values.size());
    const std::optional<ptrdiff_t> strongest = peak_near(values, size / 2, size, DEVIATIONS * deviation);
    if (!strongest) {
        return {};
    }
    const std::optional<ptrdiff_t> before =
        peak_near(values, *strongest - distance, REACH, DEVIATIONS_NEAR * deviation);
    const std::optional<ptrdiff_t> behind =
        peak_near(values, *strongest + distance, REACH, DEVIATIONS_NEAR * deviation);
    const bool clear = values[static_cast<size_t>(*strongest)] > 2.0 * DEVIATIONS * deviation;
    return before ? found_sweeps{before, strongest, clear} : found_sweeps{strongest, behind, clear};
}

// Gains of the path as one sweep measures them: recorded over played spectrum; of its impulse response only what can
// be direct sound and echoes is kept, which leaves most of the noise behind. Source: Farina 2000, "Simultaneous
// measurement of impulse response and distortion with a swept-sine technique".
class path_response {
public:
    path_response(const signal& recording, ptrdiff_t start)
    {
        const complex_signal pattern = spectrum_of(sweep(), 0, SWEEP, SIZE);
        complex_signal response = spectrum_of(recording, start, SWEEP + REST, SIZE);
        double strongest = 0.0;
        for (const std::complex<double>& value : pattern) {
            strongest = std::max(strongest, std::norm(value));
        }
        for (size_t k = 0; k < SIZE; ++k) {
            response[k] *= std::conj(pattern[k]) / (std::norm(pattern[k]) + 1e-3 * strongest);
        }
        transform(&response, false);
        response_ = part(response, SIZE - BEFORE);
        noise_ = part(response, SIZE / 2);
    }

    // SILENCE_DB where there is nothing but noise.
    double gain_db(double low, double high) const
    {
        const double received = mean_power(response_, low, high), noise = mean_power(noise_, low, high);
        return received > OVER_NOISE * noise ? to_db(received - noise) : SILENCE_DB;
    }

    // Over the gain that an earlier response has, where that is more than noise; at most how much it may be.
    double change_db(const path_response& earlier, double low, double high) const
    {
        const double before = earlier.gain_db(low, high);
        const double now = std::max(mean_power(response_, low, high), OVER_NOISE * mean_power(noise_, low, high));
        return before > SILENCE_DB ? to_db(now) - before : 0.0;
    }

private:
    static constexpr double OVER_NOISE = 4.0;
    static constexpr size_t SIZE = 131072;       // from the sweep's length and the rest
    static constexpr size_t BEFORE = RATE / 200; // filters ring before the peak, too
    static constexpr size_t KEPT = RATE / 10;

    // The spectrum of the part of a cyclic response that starts at `begin`.
    static complex_signal part(const complex_signal& response, size_t begin)
    {
        complex_signal data(SIZE);
        for (size_t i = 0; i < KEPT; ++i) {
            data[i] = response[(begin + i) % SIZE];
        }
        transform(&data, true);
        return data;
    }

    static double mean_power(const complex_signal& spectrum, double low, double high)
    {
        const double spacing = static_cast<double>(RATE) / SIZE;
        const auto first = static_cast<size_t>(low / spacing), last = static_cast<size_t>(high / spacing);
        double power = 0.0;
        for (size_t k = first; k < last; ++k) {
            power += std::norm(spectrum[k]);
        }
        return power / static_cast<double>(last - first);
    }

    complex_signal response_, noise_;
};

// Level of the recording from `start` on; SILENCE_DB where there is none.
double level_at(const signal& recording, ptrdiff_t start, size_t count, double low, double high)
{
    const ptrdiff_t size = static_cast<ptrdiff_t>(recording.size());
    const ptrdiff_t begin = std::clamp<ptrdiff_t>(start, 0, size);
    const ptrdiff_t end = std::clamp<ptrdiff_t>(start + static_cast<ptrdiff_t>(count), begin, size);
    return level_db(mean_spectrum(recording.data() + begin, static_cast<size_t>(end - begin)), low, high);
}

// Level of a band just before or after the sounds, whichever is louder or fainter.
std::pair<double, double> quiet_levels(const signal& recording, ptrdiff_t probe_start, double low, double high)
{
    constexpr size_t MARGIN = RATE / 10; // echoes and filters spread the parts
    constexpr size_t LENGTH = SILENCE - 2 * MARGIN;
    return {level_at(recording, probe_start + static_cast<ptrdiff_t>(MARGIN), LENGTH, low, high),
            level_at(recording, probe_start + static_cast<ptrdiff_t>(PROBE - SILENCE + MARGIN), LENGTH, low, high)};
}

band_prospect prospect_of(const signal& recording, ptrdiff_t probe_start, const path_response& path,
                          const sound_band& band)
{
    constexpr double SENT_DB = -10.0, ENOUGH_DB = 10.0, EVEN_DB = 15.0;
    band_prospect found{band};
    const auto [before, after] = quiet_levels(recording, probe_start, band.low_hz, band.high_hz);
    const double gain = path.gain_db(band.low_hz, band.high_hz);
    found.over_noise_db = gain > SILENCE_DB ? gain + SENT_DB - std::max(before, after) : SILENCE_DB;
    double weakest = 0.0, strongest = SILENCE_DB;
    for (double low = band.low_hz; low + RESPONSE_STEP <= band.high_hz; low += RESPONSE_STEP) {
        const double part = path.gain_db(low, low + RESPONSE_STEP);
        weakest = std::min(weakest, part);
        strongest = std::max(strongest, part);
    }
    found.spread_db = strongest - weakest;
    found.good = found.over_noise_db > ENOUGH_DB && found.spread_db < EVEN_DB;
    return found;
}

void measure_levels(const signal& recording, ptrdiff_t probe_start, probe_report& report)
{
    const double band_low = report.band.low_hz, band_high = report.band.high_hz;
    constexpr double ROOM_LOW = 300.0, ROOM_HIGH = 1500.0;
    const auto [before, after] = quiet_levels(recording, probe_start, band_low, band_high);
    report.noise_db = std::max(before, after);
    const signal played = scaled(probe_sound(report.band));
    std::vector<double> frames, gains, room;
    for (uint32_t i = 0; i < PROBE_FRAMES; ++i) {
        const auto place = static_cast<ptrdiff_t>(FIRST_FRAME + i * FRAME_DISTANCE);
        const ptrdiff_t start = probe_start + place;
        frames.push_back(level_at(recording, start, FRAME, band_low, band_high));
        gains.push_back(frames.back() - level_at(played, place, FRAME, band_low, band_high)); // no two are equally loud
        room.push_back(level_at(recording, start, FRAME, ROOM_LOW, ROOM_HIGH));
    }
    report.signal_db = *std::max_element(frames.begin(), frames.end());
    report.frames_change_db = gains.back() - gains.front();
    // A room that was louder only on one side of the frames has not been hushed.
    const auto [room_before, room_after] = quiet_levels(recording, probe_start, ROOM_LOW, ROOM_HIGH);
    constexpr double ROOM_TO_TELL_DB = -85.0;
    const double room_quiet = std::min(room_before, room_after);
    report.hush_db = room_quiet > ROOM_TO_TELL_DB ? room_quiet - median(room) : 0.0;
}

uint64_t count_clipped(const signal& samples)
{
    const std::vector<float> raw(samples.begin(), samples.end());
    kosc_inspect::clip_meter meter;
    meter.process(raw.data(), raw.size(), 1);
    meter.finish();
    return meter.total();
}

void count_frames(const std::vector<int16_t>& recording, probe_report& report)
{
    constexpr bool CUT = true;
    listener receiver(1, {report.band}, {}, CUT);
    std::vector<received_message> received = receiver.receive({recording});
    const std::vector<received_message> last = receiver.finish();
    received.insert(received.end(), last.begin(), last.end());
    for (uint32_t i = 0; i < PROBE_FRAMES; ++i) {
        const message_bytes sent = frame_message(i);
        const auto found = std::find_if(received.begin(), received.end(),
                                        [&](const received_message& message) { return message.bytes == sent; });
        if (found != received.end()) {
            ++report.frames_heard;
            report.frames_second_look += found->second_look_needed ? 1 : 0;
        }
    }
}

} // namespace

std::vector<int16_t> probe_sound(const sound_band& band)
{
    std::vector<int16_t> sound(PROBE);
    const signal tone = sweep();
    for (const size_t start : {SILENCE, SECOND_SWEEP}) {
        std::transform(tone.begin(), tone.end(), sound.begin() + static_cast<ptrdiff_t>(start),
                       [](double sample) { return to_pcm(static_cast<float>(sample)); });
    }
    const frame_encoder encoder({band});
    for (uint32_t i = 0; i < PROBE_FRAMES; ++i) {
        const std::vector<int16_t> frame = encoder.encode({frame_message(i)});
        std::copy(frame.begin(), frame.end(), sound.begin() + static_cast<ptrdiff_t>(FIRST_FRAME + i * FRAME_DISTANCE));
    }
    return sound;
}

probe_report analyse_probe(const std::vector<int16_t>& recording, const sound_band& band)
{
    constexpr double SHOWN_BELOW = 1000.0;
    constexpr size_t RESPONSE_PARTS = 18;
    const double band_low = band.low_hz, band_high = band.high_hz;
    probe_report report;
    report.band = band;
    report.response_low = std::max(1.0, std::floor((band_low - SHOWN_BELOW) / RESPONSE_STEP)) * RESPONSE_STEP;
    count_frames(recording, report);
    const signal samples = scaled(recording);
    report.clipped_samples = count_clipped(samples);
    const found_sweeps found = find_sweeps(samples);
    if (!found.first) {
        report.noise_db = level_at(samples, 0, samples.size(), band_low, band_high);
        return report;
    }
    report.sweep_found = true;
    const ptrdiff_t probe_start = *found.first - static_cast<ptrdiff_t>(SILENCE);
    report.start_seconds = static_cast<double>(probe_start) / RATE;
    const path_response first(samples, *found.first);
    report.audible_gain_db = first.gain_db(AUDIBLE_LOW, AUDIBLE_HIGH);
    for (size_t i = 0; i < RESPONSE_PARTS; ++i) {
        const double low = report.response_low + static_cast<double>(i) * RESPONSE_STEP;
        report.gain_db.push_back(first.gain_db(low, low + RESPONSE_STEP));
    }
    for (const sound_band& each : named_bands()) {
        report.prospects.push_back(prospect_of(samples, probe_start, first, each));
    }
    if (found.second) {
        const path_response second(samples, *found.second);
        report.second_sweep_gain_db =
            std::min(second.change_db(first, band_low, band_high), second.change_db(first, AUDIBLE_LOW, AUDIBLE_HIGH));
        const auto stretch = static_cast<double>(*found.second - *found.first) / SWEEP_DISTANCE;
        report.stretch_ppm = (stretch - 1.0) * 1e6;
    } else if (found.clear) {
        report.second_sweep_gain_db = SILENCE_DB;
    }
    measure_levels(samples, probe_start, report);
    return report;
}
