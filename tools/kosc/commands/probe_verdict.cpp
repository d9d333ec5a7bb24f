#include <algorithm>
#include <cmath>

#include "commands/probe.h"
#include "modem.h"

namespace {

// The parts of the response that frames use: the weakest and the strongest.
std::pair<double, double> extremes(const probe_report& report)
{
    const auto begin = report.gain_db.begin();
    const auto place = [&](double hz) { return (hz - report.response_low) / RESPONSE_STEP; };
    const auto [low, high] = std::minmax_element(begin + static_cast<ptrdiff_t>(place(report.band.low_hz)),
                                                 begin + static_cast<ptrdiff_t>(std::ceil(place(report.band.high_hz))));
    return {*low, *high};
}

bool nothing(const probe_report& report) { return !report.sweep_found && report.frames_heard == 0; }

bool clipped(const probe_report& report)
{
    constexpr uint64_t MANY = 50;
    return report.clipped_samples >= MANY;
}

bool samples_lost(const probe_report& report)
{
    constexpr double WORST_CLOCKS_PPM = 300.0;
    return std::abs(report.stretch_ppm) > WORST_CLOCKS_PPM;
}

// What lasts becomes fainter, or what else is in the room does meanwhile.
bool suppressed(const probe_report& report)
{
    constexpr double LOSS_DB = 6.0, HUSH_DB = 10.0;
    const bool sweep_fades = report.second_sweep_gain_db < -LOSS_DB;
    return report.sweep_found && (sweep_fades || report.frames_change_db < -LOSS_DB || report.hush_db > HUSH_DB);
}

// The audible part of the sweep comes through so well that the modem's band would stand out of the noise, and some of
// that hardly comes or not at all.
bool low_passed(const probe_report& report)
{
    constexpr double LOSS_DB = 35.0, SENT_DB = -10.0, CLEAR_DB = 20.0;
    const bool clear = report.audible_gain_db + SENT_DB - report.noise_db > CLEAR_DB;
    return report.sweep_found && clear && extremes(report).first < report.audible_gain_db - LOSS_DB;
}

bool too_faint(const probe_report& report)
{
    constexpr double ENOUGH_DB = 10.0;
    return report.signal_db - report.noise_db < ENOUGH_DB;
}

bool noisy(const probe_report& report)
{
    const double loud_noise_db = -60.0 + kosc_inspect::room_over_ultrasound_db(report.band);
    return too_faint(report) && report.noise_db > loud_noise_db;
}

bool uneven(const probe_report& report)
{
    constexpr double SPREAD_DB = 15.0;
    return report.sweep_found && extremes(report).second - extremes(report).first > SPREAD_DB;
}

bool frames_lost(const probe_report& report) { return report.frames_heard < PROBE_FRAMES; }

struct rule {
    bool (*holds)(const probe_report& report);
    const char* cause;
    const char* sentence;
    const char* advice;
};

// The first that holds names the cause: each would explain those behind it.
constexpr rule RULES[] = {
    {nothing, "nothing", "Nothing of the sound came back.",
     "Turn up the volume, unmute the microphone, and see with kosc devices whether these are the right devices."},
    {clipped, "clipping", "The recording is overdriven.", "Turn down the volume or the microphone's gain."},
    {samples_lost, "lost-samples", "Samples were lost or repeated on the way.",
     "Close other programs that use sound or much computing time."},
    {noisy, "noise", "There is much noise between BAND kHz.",
     "Move away from its source, such as a switching power supply or an ultrasonic sensor, or turn up the volume."},
    {suppressed, "suppression", "The sound is turned down while it lasts.",
     "Switch off echo cancelling, noise suppression and automatic gain for the microphone."},
    {low_passed, "low-pass", "Part of the band between BAND kHz does not come through.",
     "Set the devices to 48000 Hz without voice processing, and use no Bluetooth headset; or try another microphone."},
    {too_faint, "faint", "The sound is too faint.", "Turn up the volume, or bring loudspeaker and microphone closer."},
    {uneven, "uneven", "Parts of the band come through much weaker than others.",
     "Point the loudspeaker at the microphone, and bring them closer."},
    {frames_lost, "echo", "Level and band are right, but frames were lost, as strong echoes would do.",
     "Bring loudspeaker and microphone closer, and away from hard walls."},
};

} // namespace

probe_verdict judge(const probe_report& report)
{
    const auto* const found =
        std::find_if(std::begin(RULES), std::end(RULES), [&](const rule& each) { return each.holds(report); });
    if (found == std::end(RULES)) {
        return {fitness::GOOD, "none", "This path is fit for use.", "Nothing needs to be done."};
    }
    const bool most_decoded = report.frames_heard * 2 > PROBE_FRAMES;
    std::string sentence = found->sentence;
    const std::string stands_for_it = "BAND";
    const size_t place = sentence.find(stands_for_it);
    if (place != std::string::npos) {
        sentence.replace(place, stands_for_it.size(), kosc_inspect::edges_khz(report.band));
    }
    return {most_decoded ? fitness::USABLE : fitness::UNFIT, found->cause, sentence, found->advice};
}

const band_prospect* best_band(const probe_report& report, fitness of_frames)
{
    const band_prospect* best = nullptr;
    bool best_is_good = false;
    for (const band_prospect& each : report.prospects) {
        const bool tried = each.band.first_subcarrier == report.band.first_subcarrier;
        const bool good = each.good && (!tried || of_frames == fitness::GOOD);
        const bool clearer = best == nullptr || each.over_noise_db > best->over_noise_db;
        if (good || (!best_is_good && clearer && each.over_noise_db > 0.0)) {
            best = &each;
            best_is_good = good;
        }
    }
    return best;
}
