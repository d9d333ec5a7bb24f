#include <algorithm>
#include <cctype>
#include <iterator>

#include "inspection.h"
#include "modem.h"
#include "text.h"

namespace kosc_inspect {
namespace {

std::string count_of_frames(const inspection& result)
{
    size_t at_once = 0, later = 0, failed = 0, crowded = 0;
    for (const candidate& c : result.candidates) {
        if (!c.chance) {
            crowded += c.by_crowd ? 1 : 0;
            ++(c.decoded ? (c.second_look_needed ? later : at_once) : failed);
        }
    }
    const size_t all = at_once + later + failed;
    const size_t sums = result.sums.size();
    const std::string added_up = sums == 0   ? ""
                                 : sums == 1 ? ", but the sum of weak frames gives a message"
                                             : text(", but the sums of weak frames give %zu messages", sums);
    if (all == 0) {
        return "no frame is found" + added_up;
    }
    std::string sentence = all == 1 ? (failed == 0 ? "the frame found decodes" : "the frame found does not decode")
                                    : text("%zu of %zu frames found decode", at_once + later, all);
    if (later != 0) {
        sentence += all == 1 ? " with the second look" : text(", %zu of them with the second look", later);
    }
    if (crowded != 0) {
        sentence += all == 1 ? ", but does with --crowd" : text(", and %zu more with --crowd", crowded);
    }
    return sentence + added_up;
}

struct cause_words {
    const char* name;
    const char* advice; // after the count of frames
};

constexpr cause_words WORDS[] = {
    {"none", "nothing is wrong with the recording"},
    {"silence", "the recording is silent; check that the right input is recorded and not muted"},
    {"no samples", "the recording has no samples; see whether it was closed properly"},
    {"wrong rate", "the recording is labelled %u Hz but was made at %.0f Hz; correct the label"},
    {"wrong speed", "the recording runs at a wrong speed (labelled %u Hz, it decodes near %.0f Hz); see that player, "
                    "recorder and label agree"},
    {"channels mixed up", "the samples belong to another number of channels; correct the label"},
    {"low-pass", "the band above %.1f kHz is empty, low-passed or recorded at a lower rate; record at 48 kHz without "
                 "a lossy format or voice processing"},
    {"quiet", "the recording is very quiet; raise the recording level or come closer"},
    {"cut", "part of the frame is missing; leave a pause before and after playing, and record all of it"},
    {"lost samples", "samples were lost, repeated or replaced on the way; use larger buffers and fewer programs at "
                     "once, and no call or stream over a network"},
    {"clipping", "the sound is clipped; lower the playing or recording level"},
    {"drift", "the sender's clock or motion shifts the frequencies; keep still, and keep the second look on"},
    {"several senders", "several frames sound at once; let one sender play at a time"},
    {"echo", "echoes blur the frame; come closer or turn the loudspeaker towards the microphone"},
    {"late arrival", "the sound arrives a second time, later than an echo may; use one loudspeaker, and no microphone "
                     "that is played back"},
    {"suppression",
     "the sound is turned down while it lasts; record without voice processing (echo cancelling, suppression, "
     "automatic gain)"},
    {"gain control", "the level rises and falls within the frame; record without automatic gain or compressor"},
    {"tone", "a steady tone lies between %s kHz; find what makes it, or come closer"},
    {"noise", "noise between %s kHz drowns the sound; play louder or come closer"},
    {"lossy codec",
     "some symbols are full of noise and others clean, as a lossy format leaves them; record without one, "
     "or send in a lower band"},
    {"nothing sent", "nothing was sent while this was recorded, or it did not reach the microphone"},
    {"not recognised", "the cause is not recognised; what was measured may tell more"},
};
static_assert(std::size(WORDS) == static_cast<size_t>(cause::unknown) + 1);

// The lowest frequency in Hz from which on the band is empty.
double end_of_band(const inspection& result)
{
    double lowest = result.band.high_hz;
    for (const channel_figures& channel : result.channels) {
        lowest = std::min(lowest, channel.empty_above.value_or(channel.burst_ends.value_or(lowest)));
    }
    for (const candidate& c : result.candidates) {
        lowest = std::min(lowest, c.chance ? lowest : c.traits.missing_above.value_or(lowest));
    }
    return lowest;
}

std::string explain(const inspection& result)
{
    const char* const words = WORDS[static_cast<size_t>(result.why)].advice;
    switch (result.why) {
    case cause::wrong_rate:
    case cause::wrong_speed:
        return text(words, result.sample_rate, result.reading->rate);
    case cause::low_pass:
        return text(words, end_of_band(result) / 1000.0);
    case cause::tone:
    case cause::noise:
        return text(words, edges_khz(result.band).c_str());
    default:
        return words;
    }
}

} // namespace

const char* name_of(cause c) { return WORDS[static_cast<size_t>(c)].name; }

std::string evidence_of(const candidate& c)
{
    const frame_traits& t = c.traits;
    std::string facts = text("pilots in place %.2f, prefixes alike %.2f, level from symbol to symbol within %.0f dB",
                             t.pilots, t.prefixes, t.range_db);
    const auto add = [&](bool notable, const std::string& fact) { facts += notable ? ", " + fact : ""; };
    add(t.slip != 0.0, text("a pilot %.0f samples %s", std::abs(t.slip), t.slip < 0 ? "early" : "late"));
    add(t.repeated != 0, text("%zu samples repeated", t.repeated));
    add(t.gap > 100, text("a pause of %zu samples", t.gap));
    add(t.jumps != 0, text("%zu symbols with a jump in time", t.jumps));
    add(t.displaced != 0, text("%zu symbols displaced", t.displaced));
    add(t.uneven_symbols != 0, text("%zu symbols far from the others' amplitudes", t.uneven_symbols));
    add(t.second_sender > 0.25, text("another frame's pilots (%.2f) %.0f ms later", t.second_sender + 0.0,
                                     1000.0 * t.second_delay / MODEM_RATE));
    add(t.echo > 0.15, text("itself again (%.2f) %.1f ms later", t.echo, 1000.0 * t.echo_delay / MODEM_RATE));
    add(t.missing_above.has_value(), text("nothing above %.1f kHz", t.missing_above.value_or(0.0) / 1000.0));
    return facts;
}

void judge(inspection* result)
{
    find_causes(result);
    std::string sentence = count_of_frames(*result) + ": " + explain(*result);
    sentence += result->sums.empty() ? "." : "; --combine hears what the sum gives.";
    sentence[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(sentence[0])));
    result->verdict = sentence;
}

} // namespace kosc_inspect
