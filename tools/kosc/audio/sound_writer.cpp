#include "audio/sound_writer.h"

#include <sndfile.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "audio/audio_file.h"
#include "commands/commands.h"
#include "picture/terminal.h"

namespace {

// The container that the ending of `path` asks for. Lossy ones are not offered: they thin out the modem's band.
int container_for(const std::string& path)
{
    const std::string ending = ending_of(path);
    if (ending == ".wav" || path == STANDARD_STREAM) {
        return SF_FORMAT_WAV;
    }
    if (ending == ".flac") {
        return SF_FORMAT_FLAC;
    }
    throw std::runtime_error("cannot write '" + path + "': its name must end in .wav or .flac");
}

// The bytes of a sound file. It is made in a temporary one, because its header is completed last, and so that what is
// written to a pipe or over an existing file is whole.
std::string sound_file(const std::vector<int16_t>& pcm, uint32_t channels, int container)
{
    const stream_ptr temporary{std::tmpfile()};
    if (!temporary) {
        throw file_error("write", "temporary file");
    }
    SF_INFO info{};
    info.samplerate = MODEM_SAMPLE_RATE;
    info.channels = static_cast<int>(channels);
    info.format = container | SF_FORMAT_PCM_16;
    constexpr int LEAVE_OPEN = 0;
    SNDFILE* const file = sf_open_fd(fileno(temporary.get()), SFM_WRITE, &info, LEAVE_OPEN);
    const auto count = static_cast<sf_count_t>(pcm.size() / channels);
    const bool written = sf_writef_short(file, pcm.data(), count) == count;
    if (sf_close(file) != SF_ERR_NO_ERROR || !written) {
        throw file_error("write", "temporary file");
    }
    std::rewind(temporary.get());
    std::string bytes;
    char buffer[4096];
    while (const size_t got = std::fread(buffer, 1, sizeof buffer, temporary.get())) {
        bytes.append(buffer, got);
    }
    return bytes;
}

} // namespace

std::string input_name(const std::string& path)
{
    return path == STANDARD_STREAM ? "standard input" : "'" + path + "'";
}

std::runtime_error file_error(const char* verb, const std::string& path)
{
    return std::runtime_error(std::string("cannot ") + verb + " " + input_name(path) + ": " + std::strerror(errno));
}

void write_file(const std::string& path, const std::string& bytes)
{
    stream_ptr stream{std::fopen(path.c_str(), "wb")};
    const bool opened = stream != nullptr;
    if (opened && std::fwrite(bytes.data(), 1, bytes.size(), stream.get()) == bytes.size() &&
        std::fclose(stream.release()) == 0) {
        return;
    }
    const std::runtime_error error = file_error("write", path);
    std::error_code ignored;
    if (opened && std::filesystem::is_regular_file(std::filesystem::symlink_status(path, ignored))) {
        std::filesystem::remove(path, ignored);
    }
    throw error;
}

std::string ending_of(const std::string& path)
{
    const size_t dot = path.rfind('.');
    std::string ending = dot == std::string::npos ? "" : path.substr(dot);
    std::transform(ending.begin(), ending.end(), ending.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    return ending;
}

void check_sound_name(const std::string& path) { container_for(path); }

int sound_container(const std::string& path) { return container_for(path); }

void write_sound(const std::string& path, const std::vector<int16_t>& pcm, uint32_t channels)
{
    const std::string bytes = sound_file(pcm, channels, container_for(path));
    if (path == STANDARD_STREAM) {
        write_output(bytes);
    } else {
        write_file(path, bytes);
    }
}
