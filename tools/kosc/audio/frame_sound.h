// A message as the sound that carries it.
#ifndef KOSC_TOOL_FRAME_SOUND_H
#define KOSC_TOOL_FRAME_SOUND_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "audio/sound_bands.h"
#include "commands/message_text.h"

// The message's frame behind `before` and before `after` silent samples. Throws when it cannot be made.
std::vector<int16_t> sound_of(const message_bytes& message, size_t before, size_t after,
                              const sound_band& band = default_band());

#endif
