// Examines a recording: finds frames, decoded or not, and measures everything around them.
#ifndef KOSC_INSPECT_INSPECTOR_H
#define KOSC_INSPECT_INSPECTOR_H

#include "inspection.h"
#include "modem.h"

namespace kosc_inspect {

struct inspect_settings {
    sound_band band;
    bool second_look = true; // and the sum of weak frames, and frames that overlap
    bool pictures = false;   // of found frames
};

class inspector {
public:
    // Throws when the modem cannot be set up.
    inspector(uint32_t sample_rate, uint32_t channels, const inspect_settings& settings);

    // Takes the recording as it is, interleaved, -1 to 1.
    void process_raw(const float* interleaved, size_t frames);
    // Takes one channel of it, counted from 0, at the modem's rate.
    void process(uint32_t channel, const int16_t* pcm, size_t count);
    // The recording has ended.
    inspection finish();

private:
    struct channel_state {
        spectrum_meter spectrum;
        clip_meter clipping{};
        float peak = 0.0F;
        std::vector<candidate> candidates{};
        std::vector<candidate> crowded{}; // that decoded in crowd_
    };

    // Has what the receivers deliver taken; each(receiver, on_message, on_failed) hands it to one of them.
    template <typename Each> void receive(Each each);
    candidate candidate_of(const kosc::receiver& receiver, const kosc::heard& frame) const;
    void take(const kosc::heard& frame);
    void take_sum(const kosc::heard& frame);
    // Tells the candidates, and adds, what only the receiver of overlapping frames decoded.
    static void add_crowded(channel_state* channel);
    // Moves what the channels have found into the result.
    void gather(inspection* result);
    // Takes the frames of which only the rest is recognised, and measures the loudest sound where there is none.
    void take_hidden_frames(inspection* result);
    channel_figures figures_of(const channel_state& channel) const;

    uint32_t sample_rate_;
    inspect_settings settings_;
    kosc::receiver receiver_;
    std::optional<kosc::receiver> crowd_; // for frames that overlap; none without a second look
    std::vector<channel_state> channels_;
    std::vector<frame_sum> sums_;
    uint64_t frames_ = 0;
    std::vector<float> kept_; // the beginning of the recording, for other tries
};

} // namespace kosc_inspect

#endif
