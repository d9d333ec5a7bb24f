#include <sndfile.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "audio_file.h"
#include "commands.h"
#include "frame_sound.h"
#include "kosc/core.h"
#include "message_text.h"
#include "terminal.h"

namespace {

struct stream_closer {
    void operator()(std::FILE* stream) const { std::fclose(stream); }
};
using stream_ptr = std::unique_ptr<std::FILE, stream_closer>;

std::runtime_error file_error(const char* verb, const std::string& path)
{
    return std::runtime_error(std::string("cannot ") + verb + " '" + path + "': " + std::strerror(errno));
}

// The text in a file, without the line end that editors and `echo` leave behind it.
std::string read_text(const std::string& path, size_t limit)
{
    constexpr size_t MOST_READ = 1U << 20; // a device may have no end
    const stream_ptr stream{path == STANDARD_STREAM ? stdin : std::fopen(path.c_str(), "rb")};
    std::string text(MOST_READ, '\0');
    text.resize(stream ? std::fread(text.data(), 1, MOST_READ, stream.get()) : 0);
    if (!stream || std::ferror(stream.get()) != 0) {
        throw file_error("read", path);
    }
    if (text.size() == MOST_READ) {
        throw std::runtime_error("'" + path + "' is longer than " + std::to_string(MOST_READ) +
                                 " bytes, the limit is " + std::to_string(limit));
    }
    for (const char end : {'\n', '\r'}) {
        if (!text.empty() && text.back() == end) {
            text.pop_back();
        }
    }
    return text;
}

message_bytes message_to_send(const encode_options& options)
{
    const size_t size = soundcomm_default_cfg()->msg_byte_len;
    if (options.hex) {
        return message_from_hex(*options.hex, size);
    }
    if (!options.text && !options.file) {
        throw std::runtime_error("nothing to send: give a text, --hex or --file");
    }
    const bool from_file = options.file || *options.text == STANDARD_STREAM;
    return message_from_text(from_file ? read_text(options.file.value_or(STANDARD_STREAM), size) : *options.text, size);
}

// The container that the ending of `path` asks for. Lossy ones are not offered: they thin out the modem's band.
int container_for(const std::string& path)
{
    const size_t dot = path.rfind('.');
    std::string ending = dot == std::string::npos ? "" : path.substr(dot);
    std::transform(ending.begin(), ending.end(), ending.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
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
std::string sound_file(const std::vector<int16_t>& pcm, int container)
{
    const stream_ptr temporary{std::tmpfile()};
    if (!temporary) {
        throw file_error("write", "temporary file");
    }
    SF_INFO info{};
    info.samplerate = MODEM_SAMPLE_RATE;
    info.channels = 1;
    info.format = container | SF_FORMAT_PCM_16;
    constexpr int LEAVE_OPEN = 0;
    SNDFILE* const file = sf_open_fd(fileno(temporary.get()), SFM_WRITE, &info, LEAVE_OPEN);
    const auto count = static_cast<sf_count_t>(pcm.size());
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

void write_file(const std::string& path, const std::string& bytes)
{
    stream_ptr stream{std::fopen(path.c_str(), "wb")};
    if (!stream || std::fwrite(bytes.data(), 1, bytes.size(), stream.get()) != bytes.size() ||
        std::fclose(stream.release()) != 0) {
        throw file_error("write", path);
    }
}

} // namespace

int run_encode(const encode_options& options)
{
    const int container = container_for(options.output);
    const size_t pad = size_t{options.pad_ms} * MODEM_SAMPLE_RATE / 1000;
    const std::string bytes = sound_file(sound_of(message_to_send(options), pad, pad), container);
    if (options.output == STANDARD_STREAM) {
        write_output(bytes);
    } else {
        write_file(options.output, bytes);
    }
    return EXIT_DONE;
}
