// A sound file that grows as its sound comes.
#ifndef KOSC_TOOL_SOUND_RECORDER_H
#define KOSC_TOOL_SOUND_RECORDER_H

#include <sndfile.h>

#include <cstdint>
#include <memory>
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
    struct file_closer {
        void operator()(SNDFILE* file) const { sf_close(file); }
    };

    std::string path_;
    stream_ptr stream_;
    std::unique_ptr<SNDFILE, file_closer> file_; // writes to stream_
    std::vector<int16_t> interleaved_;
};

#endif
