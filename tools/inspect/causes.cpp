#include <algorithm>
#include <cmath>
#include <map>

#include "inspection.h"
#include "modem.h"

namespace kosc_inspect {
namespace {

// Noise is now and then taken for a pilot; a real frame's other pilots are there, too.
bool is_chance(const candidate& c)
{
    constexpr double RARELY_BY_CHANCE = 0.55, ADDS_UP = 0.36, COHERENT = 0.25;
    const bool adds_up =
        c.traits.later_pilots > ADDS_UP || c.traits.slip != 0.0 || (c.measured && c.quality.coherence > COHERENT);
    return !is_read(c) && c.correlation < RARELY_BY_CHANCE && !adds_up;
}

// A second peak beside a frame, whose pilots are then far clearer, and just as far away.
bool is_side_peak(const candidate& c, const std::vector<candidate>& all)
{
    constexpr double CLEARER = 1.8, SAME_PLACE = 40.0;
    return !is_read(c) && c.traits.second_sender > CLEARER * c.traits.pilots &&
           std::any_of(all.begin(), all.end(), [&](const candidate& other) {
               return other.channel == c.channel && other.traits.pilots > CLEARER * c.traits.pilots &&
                      std::fabs(static_cast<double>(other.sample - c.sample) - c.traits.second_delay) < SAME_PLACE;
           });
}

void find_overlapping(candidate* c, const std::vector<candidate>& all)
{
    c->others.clear();
    c->collides = false;
    for (const candidate& other : all) {
        if (&other != c && !other.chance && other.channel == c->channel &&
            std::abs(other.sample - c->sample) < FRAME_LENGTH) {
            c->others.push_back(other.sample);
            c->collides = c->collides || (is_read(*c) && is_read(other) && other.message != c->message);
        }
    }
    c->overlapped = !c->others.empty();
}

struct evidence {
    const candidate& frame;
    const channel_figures& channel;
    const frame_traits& traits;
    const surroundings& around;
};

bool is_quiet(const evidence& e)
{
    constexpr double QUIET_DB = -63.0;
    return e.traits.level_db < QUIET_DB;
}

bool is_clipped(const evidence& e)
{
    constexpr double NOTABLE = 0.002;
    return static_cast<double>(e.frame.clipped) > NOTABLE * FRAME_LENGTH;
}

bool lost_samples(const evidence& e)
{
    constexpr size_t LONG_REPEAT = 150, LONG_GAP = 160;
    return e.traits.slip != 0.0 || e.traits.repeated > LONG_REPEAT || e.traits.gap > LONG_GAP;
}

bool is_displaced(const evidence& e) { return e.traits.displaced > 0; }

bool lost_single_samples(const evidence& e)
{
    constexpr double CLEAR = 0.8, FAST_PPM = 1500.0; // at which a chirp's prefix turns by more than the phase tells
    return e.traits.jumps > 0 && e.traits.prefixes > CLEAR && std::fabs(e.frame.quality.drift_ppm) < FAST_PPM;
}

// The room's sounds are turned down with the frame.
bool is_suppressed(const evidence& e)
{
    constexpr double HUSHED = 8.0, FALLS = 6.0, SUPPRESSED = 7.0;
    const bool abrupt = e.traits.step_db > 0.6 * e.traits.range_db;
    const bool hushed = e.around.room_early - e.around.room_late > HUSHED && e.traits.fall_db > FALLS;
    return hushed || (!abrupt && e.traits.fall_db > SUPPRESSED);
}

// A cut makes nearly all of the difference within two symbols, one of them half cut; what fades away takes longer.
bool is_cut(const evidence& e)
{
    constexpr double MISSING = 8.0, NEARLY_ALL = 0.6;
    return e.traits.step_db > MISSING && e.traits.step_db > NEARLY_ALL * e.traits.range_db;
}

constexpr size_t FEW_SYMBOLS = 2;

// A pause of some symbols that is neither silence nor a repetition: short, or with sharp ends.
bool is_interrupted(const evidence& e)
{
    constexpr double NOTABLE = 4.5;
    return e.traits.swing_db > NOTABLE && (e.traits.faint_symbols <= FEW_SYMBOLS || is_cut(e));
}

// The recording begins or ends within the frame.
bool is_cut_off(const evidence& e) { return !e.frame.whole && is_cut(e); }

// The level goes up and down more than once, and nothing but the level changes.
bool is_pumped(const evidence& e)
{
    constexpr double NOTABLE = 7.0, ALIKE = 0.45;
    constexpr size_t OFTEN = 3;
    const std::vector<double>& levels = e.traits.symbol_levels;
    const auto [low, high] = std::minmax_element(levels.begin(), levels.end());
    const double middle = (*low + *high) / 2;
    size_t crossings = 0;
    for (size_t i = 1; i < levels.size(); ++i) {
        crossings += (levels[i] < middle) != (levels[i - 1] < middle) ? 1 : 0;
    }
    return e.traits.swing_db > NOTABLE && e.traits.faint_symbols > FEW_SYMBOLS && crossings >= OFTEN &&
           e.traits.prefixes > ALIKE && !e.traits.missing_above;
}

bool is_low_passed(const evidence& e) { return e.traits.missing_above.has_value(); }

bool drifts(const evidence& e)
{
    constexpr double NOTABLE_PPM = 500.0, TRUSTED = 0.4, DROWNED_DB = -1.0;
    const frame_quality_t& quality = e.frame.quality;
    return e.frame.measured && std::fabs(quality.drift_ppm) > NOTABLE_PPM && quality.coherence > TRUSTED &&
           quality.snr_db > DROWNED_DB;
}

bool echoes(const evidence& e)
{
    constexpr double NOTABLE = 0.28;
    return e.traits.echo > NOTABLE;
}

bool has_company(const evidence& e)
{
    constexpr double NOTABLE = 0.3;
    return e.traits.second_sender > NOTABLE;
}

// The frame again rather than another's pilots: those are a third of a frame, and so is its likeness to itself.
bool arrives_late(const evidence& e)
{
    constexpr double WHOLE = 0.26, SAME_PLACE = 40.0, PREFIXES = 1.1;
    const bool same = has_company(e) && e.traits.echo > WHOLE &&
                      std::fabs(std::fabs(e.traits.second_delay) - e.traits.echo_delay) < SAME_PLACE;
    return (same || echoes(e)) && e.traits.echo_delay > PREFIXES * soundcomm_default_cfg()->ofdm_cfg.cp_len;
}

bool fails(const evidence& e) { return !e.frame.decoded || e.frame.second_look_needed; }

bool reverberates(const evidence& e)
{
    constexpr double RINGING = 10.0, STANDS_OUT = 6.0;
    return fails(e) && e.around.before_db > SILENCE_DB && e.around.after_db > e.traits.level_db - RINGING &&
           e.around.after_db > e.around.before_db + STANDS_OUT;
}

// Two found frames sound at once, and the second is neither the first again nor the rest of it, moved.
bool overlaps(const evidence& e)
{
    return e.frame.collides || (e.frame.overlapped && !arrives_late(e) && !lost_samples(e));
}

// What is a little like another frame's pilots is chance where the frame decodes at once.
bool is_joined(const evidence& e) { return fails(e) && has_company(e); }

// Every pilot is there twice; of a frame in which samples were lost, each is here or there.
bool is_doubled(const evidence& e)
{
    constexpr double MORE_THAN_ONE = 1.2;
    return has_company(e) && e.traits.pilots + e.traits.second_sender > MORE_THAN_ONE;
}

// A format that has few bits to spend on the band leaves noise in those blocks where much else sounds, and none in
// others; the level stays.
bool is_coded(const evidence& e)
{
    constexpr size_t SOME = 2, FEW = 4; // symbols
    constexpr double SAME_DB = 4.0;
    return fails(e) && e.traits.uneven_symbols >= SOME && e.traits.uneven_symbols <= FEW && e.traits.range_db < SAME_DB;
}

bool is_toned(const evidence& e)
{
    constexpr double NOTABLE_DB = 10.0;
    return e.channel.tone && e.around.before_db > e.traits.level_db - NOTABLE_DB;
}

bool is_noisy(const evidence& e)
{
    constexpr double AUDIBLE_DB = 9.0;
    return fails(e) && e.traits.level_db - e.around.before_db < AUDIBLE_DB;
}

struct rule {
    bool (*holds)(const evidence& e);
    cause why;
};

// The first that holds names the cause: each would explain those behind it.
constexpr rule RULES[] = {
    {is_quiet, cause::quiet},
    {overlaps, cause::several_senders},
    {is_cut_off, cause::cut},
    {is_clipped, cause::clipping},
    {is_toned, cause::tone},
    {lost_samples, cause::lost_samples},
    {is_pumped, cause::gain_control},
    {is_suppressed, cause::suppression},
    {is_interrupted, cause::lost_samples},
    {is_cut, cause::cut},
    {is_low_passed, cause::low_pass},
    {arrives_late, cause::late_arrival},
    {lost_single_samples, cause::lost_samples},
    {drifts, cause::drift},
    {is_doubled, cause::several_senders},
    {echoes, cause::echo},
    {is_displaced, cause::lost_samples},
    {is_joined, cause::several_senders},
    {reverberates, cause::echo},
    {is_noisy, cause::noise},
    {is_coded, cause::lossy_codec},
    {fails, cause::unknown},
};

cause cause_of(const candidate& c, const channel_figures& channel)
{
    const evidence e = {c, channel, c.traits, c.around};
    const auto* const found =
        std::find_if(std::begin(RULES), std::end(RULES), [&](const rule& each) { return each.holds(e); });
    return found == std::end(RULES) ? cause::none : found->why;
}

// For a recording without a frame.
cause cause_of_absence(const inspection& result)
{
    const double louder = room_over_ultrasound_db(result.band);
    const double sound_db = -82.0 + louder, noisy_db = -72.0 + louder;
    constexpr double SHORTEST_PART = 0.03, MOST_OF_FRAME = 0.22, STANDS_OUT = 12.0;
    const auto any = [&](auto condition) {
        return std::any_of(result.channels.begin(), result.channels.end(), condition);
    };
    if (result.seconds == 0.0) {
        return cause::no_samples;
    }
    if (!any([](const channel_figures& c) { return c.peak > SILENT_PEAK; })) {
        return cause::silence;
    }
    if (any([](const channel_figures& c) { return c.empty_above || c.burst_ends; })) {
        return cause::low_pass;
    }
    if (any([&](const channel_figures& c) {
            return c.loudest_db > sound_db && c.longest_burst > SHORTEST_PART && c.longest_burst < MOST_OF_FRAME;
        })) {
        return cause::cut;
    }
    if (any([](const channel_figures& c) { return c.gated; })) {
        return cause::suppression;
    }
    if (any([&](const channel_figures& c) {
            return c.loudest_db > c.floor_db + STANDS_OUT && c.loudest_db > sound_db && c.longest_burst > SHORTEST_PART;
        })) {
        return cause::unknown;
    }
    if (any([](const channel_figures& c) { return c.tone.has_value(); })) {
        return cause::tone;
    }
    return any([&](const channel_figures& c) { return c.floor_db > noisy_db; }) ? cause::noise : cause::nothing;
}

// The most frequent cause among the frames that failed or, when none did, among all.
cause cause_of_frames(const std::vector<candidate>& candidates)
{
    const bool failures =
        std::any_of(candidates.begin(), candidates.end(), [](const candidate& c) { return !c.decoded && !c.chance; });
    std::map<cause, int> counts;
    for (const candidate& c : candidates) {
        if (!c.chance && !(failures && c.decoded)) {
            ++counts[c.why];
        }
    }
    const auto most = std::max_element(counts.begin(), counts.end(),
                                       [](const auto& a, const auto& b) { return a.second < b.second; });
    return most == counts.end() ? cause::none : most->first;
}

// A sum's frames are less than its own time apart from its newest.
bool lies_in(const frame_sum& sum, const candidate& c)
{
    constexpr double SAME_PLACE = 400.0; // samples
    const double before = static_cast<double>(sum.sample - c.sample);
    return before > -SAME_PLACE && before < sum.from.seconds * MODEM_RATE + SAME_PLACE &&
           (c.channel == sum.channel || c.channel == sum.last_channel);
}

} // namespace

bool could_be_summed(const candidate& c, const inspection& result)
{
    constexpr double KEPT_SECONDS = 12.0; // for which the sum waits for more
    const auto near = [&](int64_t sample) {
        return std::fabs(static_cast<double>(sample - c.sample)) < KEPT_SECONDS * MODEM_RATE;
    };
    const auto may_join = [&](const candidate& other) {
        return &other != &c && !other.decoded && !other.chance && near(other.sample);
    };
    return !is_read(c) && std::any_of(result.candidates.begin(), result.candidates.end(), may_join) &&
           std::none_of(result.sums.begin(), result.sums.end(), [&](const frame_sum& sum) { return near(sum.sample); });
}

void find_causes(inspection* result)
{
    for (candidate& c : result->candidates) {
        c.chance = is_chance(c) || is_side_peak(c, result->candidates);
    }
    for (candidate& c : result->candidates) {
        c.summed = !is_read(c) && std::any_of(result->sums.begin(), result->sums.end(),
                                              [&](const frame_sum& sum) { return lies_in(sum, c); });
        find_overlapping(&c, result->candidates);
        c.why = c.chance ? cause::noise : cause_of(c, result->channels[c.channel - 1]);
    }
    const bool found =
        std::any_of(result->candidates.begin(), result->candidates.end(), [](const candidate& c) { return !c.chance; });
    result->why = found ? cause_of_frames(result->candidates) : cause_of_absence(*result);
    if (result->why == cause::nothing && !result->sums.empty()) {
        result->why = cause::noise;
    }
    if (result->reading) {
        constexpr cause MISREADINGS[] = {cause::wrong_rate, cause::wrong_speed, cause::mixed_channels,
                                         cause::mixed_channels};
        result->why = MISREADINGS[static_cast<size_t>(result->reading->what)];
        for (candidate& c : result->candidates) {
            c.why = result->why;
        }
    }
}

} // namespace kosc_inspect
