#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <map>

#include "inspection.h"

namespace kosc_inspect {
namespace {

constexpr uint32_t FRAME_SAMPLES = 11520;

// Noise is now and then taken for a pilot; then nothing behind it adds up, and the second look may not even begin.
bool is_chance(const candidate& c)
{
    constexpr double RARELY_BY_CHANCE = 0.55, INCOHERENT = 0.25;
    const bool incoherent = c.second_look_needed && (!c.measured || c.quality.coherence < INCOHERENT);
    return !c.decoded && c.correlation < RARELY_BY_CHANCE && incoherent;
}

bool drifts(const candidate& c)
{
    constexpr double NOTABLE_PPM = 500.0, TRUSTED = 0.35;
    return c.measured && std::fabs(c.quality.drift_ppm) > NOTABLE_PPM && (c.decoded || c.quality.coherence > TRUSTED);
}

cause cause_of(const candidate& c, const channel_figures& channel)
{
    constexpr double QUIET_DB = -66.0, NOTABLE_ECHO = 0.28, NOTABLE_CLIPPING = 0.001, AUDIBLE_DB = 12.0;
    if (c.traits.level_db < QUIET_DB) {
        return cause::quiet;
    }
    if (c.traits.cut) {
        return cause::cut;
    }
    if (static_cast<double>(c.clipped) > NOTABLE_CLIPPING * FRAME_SAMPLES) {
        return cause::clipping;
    }
    if (drifts(c)) {
        return cause::drift;
    }
    if (c.traits.echo > NOTABLE_ECHO) {
        return cause::echo;
    }
    if (c.traits.fading_away || (!c.decoded && channel.gated)) {
        return cause::suppression;
    }
    if (c.decoded && !c.second_look_needed) {
        return cause::none;
    }
    // What spoils a frame that stands well above the background came with it.
    return c.traits.level_db - channel.floor_db > AUDIBLE_DB ? cause::echo : cause::noise;
}

// For a recording without a frame.
cause cause_of_absence(const inspection& result)
{
    constexpr double HEARD_DB = -85.0, NOISY_DB = -75.0;
    constexpr double SHORTEST_PART = 0.03, MOST_OF_FRAME = 0.22;
    const auto any = [&](auto condition) {
        return std::any_of(result.channels.begin(), result.channels.end(), condition);
    };
    if (!any([](const channel_figures& c) { return c.peak > SILENT_PEAK; })) {
        return cause::silence;
    }
    if (any([](const channel_figures& c) { return c.empty_above.has_value(); })) {
        return cause::low_pass;
    }
    if (any([](const channel_figures& c) {
            return c.loudest_db > HEARD_DB && c.longest_burst > SHORTEST_PART && c.longest_burst < MOST_OF_FRAME;
        })) {
        return cause::cut;
    }
    if (any([](const channel_figures& c) { return c.gated; })) {
        return cause::suppression;
    }
    return any([](const channel_figures& c) { return c.floor_db > NOISY_DB; }) ? cause::noise : cause::nothing;
}

// The most frequent cause among the frames that failed or, when none did, among all.
cause cause_of_frames(const std::vector<candidate>& candidates)
{
    const bool failures = std::any_of(candidates.begin(), candidates.end(),
                                      [](const candidate& c) { return !c.decoded && !is_chance(c); });
    std::map<cause, int> counts;
    for (const candidate& c : candidates) {
        if (!is_chance(c) && !(failures && c.decoded)) {
            ++counts[c.why];
        }
    }
    const auto most = std::max_element(counts.begin(), counts.end(),
                                       [](const auto& a, const auto& b) { return a.second < b.second; });
    return most == counts.end() ? cause::none : most->first;
}

template <typename... Arguments> std::string text(const char* format, Arguments... arguments)
{
    char line[200];
    std::snprintf(line, sizeof line, format, arguments...);
    return line;
}

std::string count_of_frames(const inspection& result)
{
    size_t at_once = 0, later = 0, failed = 0;
    for (const candidate& c : result.candidates) {
        if (!is_chance(c)) {
            ++(c.decoded ? (c.second_look_needed ? later : at_once) : failed);
        }
    }
    const size_t all = at_once + later + failed;
    if (all == 0) {
        return "no frame is found";
    }
    std::string sentence = all == 1 ? (failed == 0 ? "the frame found decodes" : "the frame found does not decode")
                                    : text("%zu of %zu frames found decode", at_once + later, all);
    if (later != 0) {
        sentence += all == 1 ? " with the second look" : text(", %zu of them with the second look", later);
    }
    return sentence;
}

const char* explanation(cause c)
{
    switch (c) {
    case cause::silence:
        return "the recording is silent; check that the right input is recorded and not muted";
    case cause::quiet:
        return "the recording is very quiet; raise the recording level or come closer";
    case cause::cut:
        return "part of the frame is missing; leave a pause before and after playing, and drop no blocks";
    case cause::clipping:
        return "the sound is clipped; lower the playing or recording level";
    case cause::drift:
        return "the sender's clock or motion shifts the frequencies; keep still, and keep the second look on";
    case cause::echo:
        return "echoes blur the frame; come closer or turn the loudspeaker towards the microphone";
    case cause::suppression:
        return "noise suppression seems to be at work; record without voice processing (echo cancelling, suppression)";
    case cause::noise:
        return "noise between 18 and 21 kHz drowns the sound; play louder or come closer";
    case cause::nothing:
        return "nothing was sent while this was recorded, or it did not reach the microphone";
    default:
        return "nothing is wrong with the recording";
    }
}

std::string explain(const inspection& result)
{
    if (result.why == cause::wrong_rate) {
        return text("the recording is labelled %u Hz but was made at %u Hz; correct the label", result.sample_rate,
                    *result.other_rate);
    }
    if (result.why == cause::low_pass) {
        double lowest = BAND_HIGH;
        for (const channel_figures& channel : result.channels) {
            lowest = std::min(lowest, channel.empty_above.value_or(lowest));
        }
        return text(
            "the band above %.1f kHz is empty, low-passed or recorded at a lower rate; record at 48 kHz without "
            "a lossy format or voice processing",
            lowest / 1000.0);
    }
    return explanation(result.why);
}

} // namespace

const char* name_of(cause c)
{
    constexpr const char* NAMES[] = {"none",     "silence", "wrong rate", "low-pass",    "quiet", "cut",
                                     "clipping", "drift",   "echo",       "suppression", "noise", "nothing sent"};
    return NAMES[static_cast<size_t>(c)];
}

void judge(inspection* result)
{
    for (candidate& c : result->candidates) {
        c.why = is_chance(c) ? cause::noise : cause_of(c, result->channels[c.channel - 1]);
    }
    const bool found = !std::all_of(result->candidates.begin(), result->candidates.end(), is_chance);
    result->why = result->other_rate ? cause::wrong_rate
                  : found            ? cause_of_frames(result->candidates)
                                     : cause_of_absence(*result);
    std::string sentence = count_of_frames(*result) + ": " + explain(*result) + ".";
    sentence[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(sentence[0])));
    result->verdict = sentence;
}

} // namespace kosc_inspect
