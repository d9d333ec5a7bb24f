#include "inspector.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <tuple>

#include "channels.h"
#include "frame_search.h"

namespace kosc_inspect {
namespace {

constexpr uint32_t HOP = 512;
constexpr size_t SECONDS_KEPT = 60;

// Levels around a frame that starts so many seconds into the recording.
surroundings surroundings_of(const spectrum_meter& spectrum, double start, double sample_rate)
{
    const auto mean = [&](const std::vector<float>& levels, double begin, double end) {
        const double block = SPECTRUM_LENGTH / sample_rate, hop = HOP / sample_rate;
        double sum = 0.0, count = 0.0;
        for (auto i = static_cast<size_t>(std::ceil(std::max(begin, 0.0) / hop));
             i < levels.size() && static_cast<double>(i) * hop + block <= end; ++i) {
            sum += levels[i];
            ++count;
        }
        return count > 0.0 ? sum / count : SILENCE_DB;
    };
    const std::vector<float>&band = spectrum.band_levels(), &room = spectrum.room_levels();
    const double end = start + FRAME_LENGTH / MODEM_RATE;
    return {mean(band, start - 0.08, start - 0.003),
            mean(band, end + 0.012, end + 0.05),
            mean(room, start - 0.08, start),
            mean(room, start, start + 0.045),
            mean(room, end - 0.08, end),
            mean(room, end + 0.005, end + 0.05)};
}

// The longest time for which the levels stay clearly above their floor.
double longest_burst(const std::vector<float>& levels, double floor, double seconds_a_level)
{
    constexpr double CLEARLY = 8.0;
    size_t longest = 0;
    size_t current = 0;
    for (const float level : levels) {
        current = level > floor + CLEARLY ? current + 1 : 0;
        longest = std::max(longest, current);
    }
    return static_cast<double>(longest) * seconds_a_level;
}

// With a second look it receives frames that overlap, if `crowd`, or adds up weak frames.
kosc::receiver receiver_for(uint32_t channels, const inspect_settings& wanted, bool crowd)
{
    kosc::receiver_settings settings;
    settings.channels = channels;
    settings.cut = true;
    settings.second_look = wanted.second_look ? KOSC_SECOND_LOOK_MEASURE : KOSC_SECOND_LOOK_OFF;
    settings.combining = combining_of(channels, wanted.second_look && !crowd);
    settings.crowd = crowd ? KOSC_CROWD_CANCEL : KOSC_CROWD_OFF;
    return make_receiver(wanted.band, settings);
}

} // namespace

inspector::inspector(uint32_t sample_rate, uint32_t channels, const inspect_settings& settings)
    : sample_rate_(sample_rate), settings_(settings), receiver_(receiver_for(channels, settings, false))
{
    if (settings.second_look) {
        crowd_ = receiver_for(channels, settings, true);
    }
    for (uint32_t i = 0; i < channels; ++i) {
        channels_.push_back({{static_cast<double>(sample_rate), HOP, settings.band}});
    }
}

void inspector::process_raw(const float* interleaved, size_t frames)
{
    const size_t stride = channels_.size();
    for (size_t c = 0; c < stride; ++c) {
        channels_[c].spectrum.process(interleaved + c, frames, stride);
        channels_[c].clipping.process(interleaved + c, frames, stride);
        for (size_t i = 0; i < frames; ++i) {
            channels_[c].peak = std::max(channels_[c].peak, std::fabs(interleaved[i * stride + c]));
        }
    }
    frames_ += frames;
    const size_t room = SECONDS_KEPT * sample_rate_ * stride - kept_.size();
    kept_.insert(kept_.end(), interleaved, interleaved + std::min(room, frames * stride));
}

template <typename Each> void inspector::receive(Each each)
{
    const auto take_frame = [this](const kosc::heard& frame) { take(frame); };
    check(each(receiver_, take_frame, take_frame));
    if (crowd_) {
        const auto take_crowded = [this](const kosc::heard& frame) {
            channels_[frame.channel].crowded.push_back(candidate_of(*crowd_, frame));
        };
        check(each(*crowd_, take_crowded, [](const kosc::heard&) {}));
    }
}

void inspector::process(uint32_t channel, const int16_t* pcm, size_t count)
{
    receive([&](kosc::receiver& receiver, const auto& on_message, const auto& on_failed) {
        return receiver.push_channel(channel, pcm, count, on_message, on_failed);
    });
}

candidate inspector::candidate_of(const kosc::receiver& receiver, const kosc::heard& frame) const
{
    const soundcomm_context_t* const context = receiver.context(frame.channel);
    const frame_report_t& report = frame.report;
    const std::string_view message = frame.bytes();
    candidate c{};
    c.sample = frame.sample;
    c.channel = frame.channel + 1;
    c.correlation = report.correlation;
    c.decoded = report.verdict == 1;
    c.second_look_needed = report.quality.needed;
    c.failed_crcs = report.failed_crcs;
    c.measured = report.quality.attempts != 0;
    c.quality = report.quality;
    c.message.assign(message.begin(), message.end());
    c.traits = traits_of(*context->rx_paras, report.samples);
    if (settings_.pictures) {
        c.picture = picture_of(*context, report);
    }
    return c;
}

void inspector::take_sum(const kosc::heard& frame)
{
    constexpr uint32_t BOTH_NUMBERS = 1 + 2;
    const combined_report_t& from = *frame.report.combined;
    const std::string_view message = frame.bytes();
    const uint32_t channel = frame.channel + 1;
    sums_.push_back({frame.sample,
                     channel,
                     microphones_of(from) == 2 ? BOTH_NUMBERS - channel : channel,
                     from,
                     {message.begin(), message.end()}});
}

void inspector::take(const kosc::heard& frame)
{
    if (frame.report.combined != nullptr) {
        take_sum(frame);
        return;
    }
    std::vector<candidate>& found = channels_[frame.channel].candidates;
    if (found.empty() || found.back().sample != frame.sample) { // else found in two overlapping windows
        found.push_back(candidate_of(receiver_, frame));
    }
}

void inspector::add_crowded(channel_state* channel)
{
    constexpr int64_t SAME_PLACE = 200;
    for (candidate& c : channel->crowded) {
        const auto begin = channel->candidates.begin(), end = channel->candidates.end();
        const auto same = std::find_if(
            begin, end, [&](const candidate& other) { return std::abs(other.sample - c.sample) < SAME_PLACE; });
        // The same message nearby is an echo.
        const bool known = std::any_of(begin, end, [&](const candidate& other) {
            return is_read(other) && other.message == c.message && std::abs(other.sample - c.sample) < FRAME_LENGTH;
        });
        if (known || (same != end && same->decoded)) {
            continue;
        }
        if (same != end) {
            same->by_crowd = true;
            same->message = c.message;
            continue;
        }
        c.decoded = false;
        c.by_crowd = c.covered = true;
        channel->candidates.push_back(std::move(c));
    }
    channel->crowded.clear();
}

channel_figures inspector::figures_of(const channel_state& channel) const
{
    constexpr double LOWEST = 20.0;
    const std::vector<float>& levels = channel.spectrum.band_levels();
    channel_figures figures;
    figures.band_db = channel.spectrum.level(settings_.band.low_hz, settings_.band.high_hz);
    figures.below_db = channel.spectrum.level(LOWEST, settings_.band.low_hz);
    figures.floor_db = floor_level(levels);
    figures.loudest_db = levels.empty() ? SILENCE_DB : double{*std::max_element(levels.begin(), levels.end())};
    figures.longest_burst = longest_burst(levels, figures.floor_db, static_cast<double>(HOP) / sample_rate_);
    figures.empty_above = empty_above(channel.spectrum.typical_levels(), sample_rate_, settings_.band);
    figures.gated = is_gated(channel.spectrum);
    figures.tone = steady_tone(channel.spectrum.typical_levels(), sample_rate_, settings_.band);
    figures.peak = channel.peak;
    figures.clipped = channel.clipping.total();
    return figures;
}

void inspector::gather(inspection* result)
{
    const double ratio = sample_rate_ / MODEM_RATE;
    for (channel_state& channel : channels_) {
        add_crowded(&channel);
        for (candidate& c : channel.candidates) {
            const auto place = [&](int64_t sample) {
                return static_cast<uint64_t>(std::llround(static_cast<double>(std::max<int64_t>(sample, 0)) * ratio));
            };
            c.around = surroundings_of(channel.spectrum, static_cast<double>(c.sample) / MODEM_RATE, sample_rate_);
            c.whole =
                c.sample >= 0 && static_cast<double>(c.sample + FRAME_LENGTH) * ratio <= static_cast<double>(frames_);
            c.clipped = channel.clipping.between(place(c.sample), place(c.sample + FRAME_LENGTH));
            result->candidates.push_back(std::move(c));
        }
        channel.candidates.clear();
    }
    std::sort(result->candidates.begin(), result->candidates.end(), [](const candidate& a, const candidate& b) {
        return std::tie(a.sample, a.channel) < std::tie(b.sample, b.channel);
    });
}

void inspector::take_hidden_frames(inspection* result)
{
    for (uint32_t c = 0; sample_rate_ == MODEM_RATE && c < channels_.size(); ++c) {
        std::vector<double> samples;
        for (size_t i = c; i < kept_.size(); i += channels_.size()) {
            samples.push_back(kosc_link::FULL_SCALE * kept_[i]);
        }
        const soundcomm_paras_t& paras = *receiver_.context(c)->rx_paras;
        const std::optional<size_t> place = result->why == cause::unknown
                                                ? find_by_later_pilots(paras, samples)
                                                : std::nullopt; // of a cut frame too little is there
        if (place) {
            frame_report_t report{};
            report.samples = &samples[*place];
            take({c, static_cast<int64_t>(*place), report});
        } else if (const std::optional<size_t> loudest = find_loudest_part(paras, samples)) {
            result->channels[c].burst_ends = end_of_even_band(paras, &samples[*loudest]);
        }
    }
}

inspection inspector::finish()
{
    inspection result;
    result.sample_rate = sample_rate_;
    result.band = settings_.band;
    result.seconds = static_cast<double>(frames_) / sample_rate_;
    receive([](kosc::receiver& receiver, const auto& on_message, const auto& on_failed) {
        return receiver.finish(on_message, on_failed);
    });
    for (channel_state& channel : channels_) {
        channel.spectrum.finish();
        channel.clipping.finish();
        result.channels.push_back(figures_of(channel));
    }
    gather(&result);
    // What is heard once overlapping frames are taken out needs no sum.
    std::copy_if(sums_.begin(), sums_.end(), std::back_inserter(result.sums), [&](const frame_sum& sum) {
        return std::none_of(result.candidates.begin(), result.candidates.end(), [&](const candidate& c) {
            return c.by_crowd && c.message == sum.message && std::abs(c.sample - sum.sample) < FRAME_LENGTH;
        });
    });
    // Frames that are read as they were made have their pilots in place, decoded or not.
    constexpr double IN_PLACE = 0.6;
    const bool recognised =
        std::any_of(result.candidates.begin(), result.candidates.end(),
                    [](const candidate& c) { return is_read(c) || c.traits.later_pilots > IN_PLACE; }) ||
        !result.sums.empty();
    // Of sound made at 48 kHz that is labelled 44.1 kHz.
    constexpr double DOWN = 44100.0 / 48000.0, MARGIN = 250.0;
    const double moved_end = DOWN * settings_.band.high_hz - MARGIN;
    const bool has_band =
        std::any_of(result.channels.begin(), result.channels.end(), [&](const channel_figures& figures) {
            return figures.peak > SILENT_PEAK && figures.empty_above.value_or(settings_.band.high_hz) > moved_end;
        });
    if (!recognised && has_band) {
        result.reading =
            reading_that_decodes(kept_, static_cast<uint32_t>(channels_.size()), sample_rate_, settings_.band);
    }
    judge(&result);
    if (!result.reading && (result.why == cause::unknown || result.why == cause::cut) &&
        std::all_of(result.candidates.begin(), result.candidates.end(), [](const candidate& c) { return c.chance; })) {
        take_hidden_frames(&result);
        gather(&result);
        judge(&result);
    }
    return result;
}

} // namespace kosc_inspect
