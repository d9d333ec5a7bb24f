#include "audio/audio_file.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <system_error>

#include "audio/input_descriptor.h"
#include "audio/raw_format.h"

namespace {

constexpr int MAX_CHANNELS = 8;
constexpr size_t BLOCK_FRAMES = 4096;
constexpr float FULL_SCALE = 32768.0F;

// A libsndfile message without its "Error : " in front and the full stop behind.
std::string plain(std::string text)
{
    const size_t colon = text.find(" : ");
    text.erase(0, colon == std::string::npos ? 0 : colon + 3);
    if (!text.empty() && text.back() == '.') {
        text.pop_back();
    }
    return text;
}

std::runtime_error read_error(const std::string& path, const std::string& reason)
{
    return std::runtime_error("cannot read " + input_name(path) + ": " + reason);
}

// Why libsndfile did not open a file that begins with `head`.
std::string why_unreadable(const std::string& head)
{
    constexpr const char* ADVICE = "; ffmpeg -i FILE recording.wav makes a WAV file of most recordings";
    if (head.empty()) {
        return "it is empty";
    }
    if (head.compare(std::min<size_t>(4, head.size()), 4, "ftyp") == 0) {
        return std::string("it is MPEG-4 sound (m4a), which is not read") + ADVICE;
    }
    return plain(sf_strerror(nullptr)) + (sf_error(nullptr) == SF_ERR_UNRECOGNISED_FORMAT ? ADVICE : "");
}

// Whether a WAV file's sound should be longer than the file: libsndfile reads what there is, and only notes it in its
// log. Programs that write into pipes leave the greatest length there is, which says nothing.
bool is_cut_short(SNDFILE* file)
{
    constexpr unsigned long long UNKNOWN_LENGTH = 0x7FFF0000;
    char log[4096] = {};
    sf_command(file, SFC_GET_LOG_INFO, log, sizeof log - 1);
    const char* const note = std::strstr(log, "\ndata : ");
    unsigned long long promised = 0;
    unsigned long long present = 0;
    return note != nullptr && std::sscanf(note, "\ndata : %llu (should be %llu", &promised, &present) == 2 &&
           present < promised && promised < UNKNOWN_LENGTH;
}

// Float files may hold anything; a value that is not a number becomes silence.
float bounded(float sample) { return std::isnan(sample) ? 0.0F : std::clamp(sample, -1.0F, 1.0F); }

} // namespace

int16_t to_pcm(float sample)
{
    return static_cast<int16_t>(
        std::clamp(std::nearbyint(bounded(sample) * FULL_SCALE), -FULL_SCALE, FULL_SCALE - 1.0F));
}

void to_pcm(const std::vector<float>& interleaved, size_t frames, uint32_t channels,
            std::vector<std::vector<int16_t>>& pcm)
{
    pcm.resize(channels);
    for (uint32_t channel = 0; channel < channels; ++channel) {
        pcm[channel].resize(frames);
        for (size_t i = 0; i < frames; ++i) {
            pcm[channel][i] = to_pcm(interleaved[i * channels + channel]);
        }
    }
}

audio_file::audio_file(const std::string& path, const std::string& raw, const band_list& bands) : path_(path)
{
    open(raw);
    if (info_.channels > MAX_CHANNELS) {
        throw read_error(path_, "it has " + std::to_string(info_.channels) + " channels, the limit is " +
                                    std::to_string(MAX_CHANNELS));
    }
    try {
        bands_ = bands_within(sample_rate(), bands);
    } catch (const std::runtime_error& error) {
        throw read_error(path_, error.what());
    }
    raw_.resize(BLOCK_FRAMES * channels());
    if (sample_rate() != kosc::SAMPLE_RATE) {
        converter_.emplace(info_.samplerate, kosc::SAMPLE_RATE, channels(), highest_edge(bands_));
    }
}

void audio_file::open(const std::string& raw)
{
    if (!raw.empty()) {
        info_ = raw_format(raw);
    }
    try {
        const input_descriptor input = open_input(path_, !raw.empty());
        constexpr int CLOSE_WITH_FILE = 1;
        file_.reset(sf_open_fd(input.number, SFM_READ, &info_, CLOSE_WITH_FILE));
        if (!file_) {
            throw read_error(path_, why_unreadable(input.head));
        }
        truncated_ = input.whole && is_cut_short(file_.get());
    } catch (const std::system_error& error) {
        throw read_error(path_, error.code().message());
    }
}

// Fills raw_ and returns the frames in it, 0 at the end.
size_t audio_file::read_raw()
{
    const sf_count_t frames = std::max<sf_count_t>(sf_readf_float(file_.get(), raw_.data(), BLOCK_FRAMES), 0);
    frames_read_ += frames;
    std::transform(raw_.begin(), raw_.end(), raw_.begin(), bounded);
    if (observer_ && frames != 0) {
        observer_(raw_.data(), static_cast<size_t>(frames));
    }
    return static_cast<size_t>(frames);
}

// Fills converted_, or raw_ without a converter, and returns the frames in it, 0 at the end.
size_t audio_file::read_frames()
{
    if (!converter_) {
        return read_raw();
    }
    while (const size_t raw = read_raw()) {
        if (const size_t frames = converter_->convert(raw_.data(), raw, converted_); frames != 0) {
            return frames;
        }
    }
    return converter_->finish(converted_);
}

bool audio_file::read(std::vector<std::vector<int16_t>>& pcm)
{
    const size_t frames = read_frames();
    to_pcm(converter_ ? converted_ : raw_, frames, channels(), pcm);
    return frames != 0;
}

std::vector<std::vector<int16_t>> audio_file::read_all(size_t most, const std::string& too_long)
{
    std::vector<std::vector<int16_t>> all(channels()), pcm;
    while (read(pcm)) {
        for (size_t i = 0; i < all.size(); ++i) {
            all[i].insert(all[i].end(), pcm[i].begin(), pcm[i].end());
        }
        if (all.front().size() * all.size() > most) {
            throw std::runtime_error(too_long);
        }
    }
    check_complete();
    return all;
}

void audio_file::check_complete(bool quiet) const
{
    if (sf_error(file_.get()) != SF_ERR_NO_ERROR) {
        throw read_error(path_, "it is damaged: " + plain(sf_strerror(file_.get())));
    }
    if (!quiet && (truncated_ || (length_known() && frames_read_ < info_.frames))) {
        std::fprintf(stderr, "kosc: %s breaks off before its end\n", input_name(path_).c_str());
    }
}
