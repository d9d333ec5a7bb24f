// What an inspection finds out about a recording.
#ifndef KOSC_INSPECT_INSPECTION_H
#define KOSC_INSPECT_INSPECTION_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "channels.h"
#include "clipping.h"
#include "frame_picture.h"
#include "frame_traits.h"
#include "kosc/combining.h"
#include "kosc/second_look.h"
#include "modem.h"
#include "other_reading.h"
#include "spectrum_meter.h"

namespace kosc_inspect {

// Why frames do not decode, or would be the first to fail.
enum class cause {
    none,
    silence,
    no_samples,
    wrong_rate,
    wrong_speed,
    mixed_channels,
    low_pass,
    quiet,
    cut,
    lost_samples,
    clipping,
    drift,
    several_senders,
    echo,
    late_arrival,
    suppression,
    gain_control,
    tone,
    noise,
    lossy_codec,
    nothing,
    unknown
};

// "wrong rate" and so on, as programs read it.
const char* name_of(cause c);

// Levels in dB just before a frame, within it and just after it.
struct surroundings {
    double before_db, after_db;                            // in the band
    double room_before, room_early, room_late, room_after; // of the room's sounds, outside of it
};

// A place where the synchronisation pilot was recognised.
struct candidate {
    int64_t sample; // at the modem's rate; negative when the recording begins inside the frame
    uint32_t channel;
    double correlation;
    bool decoded;            // at once or in the second look
    bool second_look_needed; // it failed its CRCs at first; always false without the second look
    uint32_t failed_crcs;    // bit i: part i of the message failed at first
    bool measured;           // `quality` is, by the second look
    frame_quality_t quality;
    std::vector<uint8_t> message; // with failed CRCs what was read instead of it
    frame_traits traits;
    surroundings around;
    uint64_t clipped;            // samples within it, at the recording's rate
    bool whole;                  // the recording neither begins nor ends within it
    bool chance;                 // noise that is somewhat like a pilot: nothing behind it adds up
    bool by_crowd;               // it decodes only when overlapping frames are taken out, which `message` is of then
    bool covered;                // and it is only found then
    bool overlapped;             // another found frame of its channel sounds during it
    bool collides;               // and what both say is known, and not the same
    std::vector<int64_t> others; // samples at which those begin
    cause why;                   // what is wrong with it
    bool summed;                 // it lies among frames whose sum decodes
    frame_picture picture;       // made where it is wanted
};

// Whether its message is known.
inline bool is_read(const candidate& c) { return c.decoded || c.by_crowd; }

// A message that weak frames gave together.
struct frame_sum {
    int64_t sample;         // of the newest frame, as a candidate's
    uint32_t channel;       // that heard it, counted from 1
    uint32_t last_channel;  // beside it, that heard any: the same one, or the other of two
    combined_report_t from; // how many frames, and how well they are heard
    std::vector<uint8_t> message;
};

// A peak that rounding alone may have: no sound.
constexpr double SILENT_PEAK = 2.5 / kosc_link::FULL_SCALE;

struct channel_figures {
    double band_db = SILENCE_DB;    // mean level in the band
    double below_db = SILENCE_DB;   // mean level below that
    double floor_db = SILENCE_DB;   // level in the band that a tenth of the time stays below
    double loudest_db = SILENCE_DB; // level in the band of the loudest moment
    std::optional<double> empty_above;
    bool gated = false;
    std::optional<double> burst_ends; // Hz from which on the loudest part lacks the band, where no frame was found
    std::optional<double> tone;       // Hz of a steady one in the modem's band
    uint64_t clipped = 0;             // samples
    double peak = 0.0;                // of full scale
    double longest_burst = 0.0;       // seconds for which the band was clearly louder than its floor
};

struct inspection {
    uint32_t sample_rate = 0;
    sound_band band{};
    double seconds = 0.0;
    std::vector<channel_figures> channels;
    std::vector<candidate> candidates;    // in the order of time
    std::vector<frame_sum> sums;          // of frames too weak alone, in the order of time
    std::optional<other_reading> reading; // under which the recording decodes instead
    cause why = cause::none;
    std::string verdict;
};

// What was measured of a frame beyond its levels and quality, as words.
std::string evidence_of(const candidate& c);

// Whether a frame is too weak alone, others might have been added to it, and no sum decodes in the time that they would
// have been kept for.
bool could_be_summed(const candidate& c, const inspection& result);

// Fills in which candidates are chance or summed, every candidate's cause and the recording's.
void find_causes(inspection* result);

// The same, and the verdict.
void judge(inspection* result);

} // namespace kosc_inspect

#endif
