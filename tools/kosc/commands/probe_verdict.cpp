#include <algorithm>
#include <cmath>

#include "commands/probe.h"
#include "picture/spectrum.h"

namespace {

// Bands of the response that frames use.
constexpr size_t FIRST_BAND = static_cast<size_t>((18000.0 - RESPONSE_LOW) / RESPONSE_STEP);
constexpr size_t LAST_BAND = static_cast<size_t>((21000.0 - RESPONSE_LOW) / RESPONSE_STEP);

bool nothing(const probe_report& report) { return !report.heard && report.frames_heard == 0; }

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
    return report.heard && (sweep_fades || report.frames_change_db < -LOSS_DB || report.hush_db > HUSH_DB);
}

double weakest_band(const probe_report& report)
{
    return *std::min_element(report.gain_db.begin() + FIRST_BAND, report.gain_db.begin() + LAST_BAND);
}

double strongest_band(const probe_report& report)
{
    return *std::max_element(report.gain_db.begin() + FIRST_BAND, report.gain_db.begin() + LAST_BAND);
}

// The audible part of the sweep comes through so well that the modem's band would stand out of the noise, and some of
// that hardly comes or not at all.
bool low_passed(const probe_report& report)
{
    constexpr double LOSS_DB = 35.0, SENT_DB = -10.0, CLEAR_DB = 20.0;
    const bool clear = report.audible_gain_db + SENT_DB - report.noise_db > CLEAR_DB;
    return report.heard && clear && weakest_band(report) < report.audible_gain_db - LOSS_DB;
}

bool too_faint(const probe_report& report)
{
    constexpr double ENOUGH_DB = 10.0;
    return report.signal_db - report.noise_db < ENOUGH_DB;
}

bool noisy(const probe_report& report)
{
    constexpr double LOUD_NOISE_DB = -60.0;
    return too_faint(report) && report.noise_db > LOUD_NOISE_DB;
}

bool uneven(const probe_report& report)
{
    constexpr double SPREAD_DB = 15.0;
    return report.heard && strongest_band(report) - weakest_band(report) > SPREAD_DB;
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
    {noisy, "noise", "There is much noise between 18 and 21 kHz.",
     "Move away from its source, such as a switching power supply or an ultrasonic sensor, or turn up the volume."},
    {suppressed, "suppression", "The sound is turned down while it lasts.",
     "Switch off echo cancelling, noise suppression and automatic gain for the microphone."},
    {low_passed, "low-pass", "The upper end of the band from 18 to 21 kHz does not come through.",
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
    const bool most_heard = report.frames_heard * 2 > PROBE_FRAMES;
    return {most_heard ? fitness::USABLE : fitness::UNFIT, found->cause, found->sentence, found->advice};
}
