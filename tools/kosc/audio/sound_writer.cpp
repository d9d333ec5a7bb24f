#include "audio/sound_writer.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string_view>
#include <system_error>

#include "commands/commands.h"
#include "picture/terminal.h"

namespace {

// Opens the file, has it filled, and leaves no part of it when that fails.
void write_by(const std::string& path, const std::function<bool(std::FILE*)>& fill)
{
    stream_ptr stream{std::fopen(path.c_str(), "wb")};
    const bool opened = stream != nullptr;
    if (opened && fill(stream.get()) && std::fclose(stream.release()) == 0) {
        return;
    }
    const std::runtime_error error = file_error("write", path);
    stream.reset(); // some systems remove no file that is open
    std::error_code ignored;
    const auto place = std::filesystem::u8path(path);
    if (opened && std::filesystem::is_regular_file(std::filesystem::symlink_status(place, ignored))) {
        std::filesystem::remove(place, ignored);
    }
    throw error;
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
    write_by(path,
             [&](std::FILE* stream) { return std::fwrite(bytes.data(), 1, bytes.size(), stream) == bytes.size(); });
}

std::string ending_of(const std::string& path)
{
    const size_t dot = path.rfind('.');
    std::string ending = dot == std::string::npos ? "" : path.substr(dot);
    std::transform(ending.begin(), ending.end(), ending.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    return ending;
}

void check_sound_name(const std::string& path) { sound_container(path); }

// Lossy containers are not offered: they thin out the modem's band.
int sound_container(const std::string& path)
{
    const std::string ending = ending_of(path);
    if (ending == ".wav" || path == STANDARD_STREAM) {
        return SF_FORMAT_WAV;
    }
#ifdef _WIN32
    constexpr const char* ENDINGS = ".wav";
#else
    constexpr const char* ENDINGS = ".wav or .flac";
    if (ending == ".flac") {
        return SF_FORMAT_FLAC;
    }
#endif
    throw std::runtime_error("cannot write '" + path + "': its name must end in " + ENDINGS);
}

sound_ptr open_to_write(std::FILE* stream, int format, uint32_t channels)
{
    constexpr int LEAVE_OPEN = 0;
    SF_INFO info{};
    info.samplerate = kosc::SAMPLE_RATE;
    info.channels = static_cast<int>(channels);
    info.format = format | SF_FORMAT_PCM_16;
    return sound_ptr{sf_open_fd(fileno(stream), SFM_WRITE, &info, LEAVE_OPEN)};
}

std::vector<int16_t> interleaved(const std::vector<std::vector<int16_t>>& pcm)
{
    size_t longest = 0;
    for (const std::vector<int16_t>& channel : pcm) {
        longest = std::max(longest, channel.size());
    }
    std::vector<int16_t> samples(longest * pcm.size());
    for (size_t c = 0; c < pcm.size(); ++c) {
        for (size_t i = 0; i < pcm[c].size(); ++i) {
            samples[i * pcm.size() + c] = pcm[c][i];
        }
    }
    return samples;
}

sound_file::sound_file(std::string path, uint32_t channels)
    : path_(std::move(path)), channels_(channels), temporary_(temporary_file())
{
    const int container = sound_container(path_);
    file_ = temporary_ ? open_to_write(temporary_.get(), container, channels) : nullptr;
    if (!file_) {
        throw file_error("write", "temporary file");
    }
}

void sound_file::write(const std::vector<int16_t>& pcm)
{
    const auto count = static_cast<sf_count_t>(pcm.size() / channels_);
    if (sf_writef_short(file_.get(), pcm.data(), count) != count) {
        throw file_error("write", "temporary file");
    }
}

void sound_file::finish()
{
    if (sf_close(file_.release()) != SF_ERR_NO_ERROR) {
        throw file_error("write", "temporary file");
    }
    std::rewind(temporary_.get());
    std::vector<char> piece(1U << 16);
    const auto each_piece = [&](const auto& put) {
        bool good = true;
        for (size_t got = 1; good && got != 0;) {
            got = std::fread(piece.data(), 1, piece.size(), temporary_.get());
            good = std::ferror(temporary_.get()) == 0 && put(std::string_view(piece.data(), got));
        }
        return good;
    };
    if (path_ == STANDARD_STREAM) {
        each_piece([](std::string_view bytes) {
            write_output(bytes);
            return true;
        });
    } else {
        write_by(path_, [&](std::FILE* stream) {
            return each_piece([stream](std::string_view bytes) {
                return std::fwrite(bytes.data(), 1, bytes.size(), stream) == bytes.size();
            });
        });
    }
}

uint64_t most_samples(const std::string& path)
{
    constexpr uint64_t HEADER = 4096; // and more than one has
    return sound_container(path) == SF_FORMAT_WAV ? (UINT32_MAX - HEADER) / sizeof(int16_t) : UINT64_MAX;
}

void write_sound(const std::string& path, const std::vector<int16_t>& pcm, uint32_t channels)
{
    sound_file file(path, channels);
    file.write(pcm);
    file.finish();
}
