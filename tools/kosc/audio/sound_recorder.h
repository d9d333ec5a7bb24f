// A sound file that grows as its sound comes.
#ifndef KOSC_TOOL_SOUND_RECORDER_H
#define KOSC_TOOL_SOUND_RECORDER_H

#include <cstdint>
#include <string>
#include <vector>

#include "audio/sound_writer.h"

// 16 bits at the modem's rate. A WAV file is whole after every write; beyond 4 GB it becomes an RF64 file.
class sound_recorder {
public:
    // Replaces the file. Throws when it cannot be written, or its name does not end in .wav or .flac.
    sound_recorder(const std::string& path, uint32_t channels);

    // Appends `pcm`, one vector a channel, all of one length. Throws when that fails.
    void write(const std::vector<std::vector<int16_t>>& pcm);
    // Completes the file; throws when that fails. Without it, the destructor does so silently.
    void close();

private:
    std::string path_;
    stream_ptr stream_;
    sound_ptr file_; // writes to stream_
};

#endif
