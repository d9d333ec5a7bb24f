// Sound files that the command makes.
#ifndef KOSC_TOOL_SOUND_WRITER_H
#define KOSC_TOOL_SOUND_WRITER_H

#include <sndfile.h>

#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

#include "kosc/kosc.hpp"

using stream_ptr = kosc::owner<std::FILE, std::fclose>;
using sound_ptr = kosc::owner<SNDFILE, sf_close>;

// What sentences call it: the path in quotes, or "standard input".
std::string input_name(const std::string& path);

// "cannot `verb` ", the name from above, and the reason that errno gives.
std::runtime_error file_error(const char* verb, const std::string& path);

// A file without a name, to be written and read, which goes when it is closed; null with errno when there is none.
std::FILE* temporary_file();

// Writes a file. Throws when that fails, and leaves no part of it.
void write_file(const std::string& path, const std::string& bytes);

// The name's last part from its dot on, in lower case; empty without a dot.
std::string ending_of(const std::string& path);

// Throws when the name does not end in .wav or .flac and is not STANDARD_STREAM's.
void check_sound_name(const std::string& path);

// What its name asks for, SF_FORMAT_WAV or SF_FORMAT_FLAC; throws likewise.
int sound_container(const std::string& path);

// A sound file of 16 bits at the modem's rate, which is written to the stream and leaves it open; null with
// libsndfile's error when it cannot be.
sound_ptr open_to_write(std::FILE* stream, int format, uint32_t channels);

// One vector a channel, silent behind its end, as interleaved samples.
std::vector<int16_t> interleaved(const std::vector<std::vector<int16_t>>& pcm);

// A sound file at the modem's rate in the making. It grows in a temporary one, because its header is completed last,
// and so that what is written to a pipe or over an existing file is whole.
class sound_file {
public:
    // Throws when the name does not end in .wav or .flac and is not STANDARD_STREAM's, which means WAV.
    explicit sound_file(std::string path, uint32_t channels = 1);

    // Appends interleaved samples; throws when that fails.
    void write(const std::vector<int16_t>& pcm);
    // Puts the file into its place; throws when that fails, and leaves no part of it.
    void finish();

private:
    std::string path_;
    uint32_t channels_;
    stream_ptr temporary_;
    sound_ptr file_; // writes to temporary_
};

// The most samples that a file of this name holds.
uint64_t most_samples(const std::string& path);

// Writes interleaved samples at the modem's rate, to standard output as WAV. Throws when that fails.
void write_sound(const std::string& path, const std::vector<int16_t>& pcm, uint32_t channels = 1);

#endif
