// Messages as the sound that carries them.
#ifndef KOSC_TOOL_FRAME_SOUND_H
#define KOSC_TOOL_FRAME_SOUND_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "audio/sound_bands.h"
#include "commands/message_text.h"
#include "kosc/kosc.hpp"

// Frames in one or several bands at the same time.
class frame_encoder {
public:
    // Throws when there is no memory, or two of the bands overlap.
    explicit frame_encoder(const band_list& bands);

    size_t bands() const { return encoders_.size(); }
    // The frames of up to as many messages as there are bands, the first in the first band, and `after` silent samples
    // behind them. One alone is as the library makes it; the sum of several is scaled to full scale.
    std::vector<int16_t> encode(const std::vector<message_bytes>& messages, size_t after = 0) const;

private:
    std::vector<kosc::encoder> encoders_;
};

#endif
