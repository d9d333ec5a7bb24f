#include "audio/audio_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "commands/commands.h"

namespace {

constexpr int MAX_CHANNELS = 8;
// The least common rate whose half lies above the modem's band, which ends at 20953 Hz.
constexpr int MIN_SAMPLE_RATE = 44100;
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
    return std::runtime_error("cannot read '" + path + "': " + reason);
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

audio_file::audio_file(const std::string& path) : path_(path)
{
    open();
    if (info_.channels > MAX_CHANNELS) {
        throw read_error(path_, "it has " + std::to_string(info_.channels) + " channels, the limit is " +
                                    std::to_string(MAX_CHANNELS));
    }
    if (info_.samplerate < MIN_SAMPLE_RATE) {
        throw read_error(path_, "the modem's band (18 to 21 kHz) is not in a recording at " +
                                    std::to_string(info_.samplerate) + " Hz; it takes " +
                                    std::to_string(MIN_SAMPLE_RATE) + " Hz or more");
    }
    raw_.resize(BLOCK_FRAMES * channels());
    if (sample_rate() != MODEM_SAMPLE_RATE) {
        converter_.emplace(sample_rate(), channels());
    }
}

void audio_file::open()
{
    const int descriptor = path_ == STANDARD_STREAM ? STDIN_FILENO : ::open(path_.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) {
        throw read_error(path_, std::strerror(errno));
    }
    struct stat status {};
    const bool regular = fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
    constexpr int CLOSE_WITH_FILE = 1;
    file_.reset(sf_open_fd(descriptor, SFM_READ, &info_, CLOSE_WITH_FILE));
    if (!file_) {
        throw read_error(path_, regular && status.st_size == 0 ? "it is empty" : plain(sf_strerror(nullptr)));
    }
    truncated_ = regular && is_cut_short(file_.get());
}

// Fills raw_ and returns the frames in it, 0 at the end.
size_t audio_file::read_raw()
{
    const sf_count_t frames = std::max<sf_count_t>(sf_readf_float(file_.get(), raw_.data(), BLOCK_FRAMES), 0);
    frames_read_ += frames;
    std::transform(raw_.begin(), raw_.end(), raw_.begin(), bounded);
    if (heard_ && frames != 0) {
        heard_(raw_.data(), static_cast<size_t>(frames));
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
    const std::vector<float>& interleaved = converter_ ? converted_ : raw_;
    pcm.resize(channels());
    for (uint32_t channel = 0; channel < channels(); ++channel) {
        pcm[channel].resize(frames);
        for (size_t i = 0; i < frames; ++i) {
            pcm[channel][i] = to_pcm(interleaved[i * channels() + channel]);
        }
    }
    return frames != 0;
}

void audio_file::check_complete() const
{
    if (sf_error(file_.get()) != SF_ERR_NO_ERROR) {
        throw read_error(path_, "it is damaged: " + plain(sf_strerror(file_.get())));
    }
    if (truncated_ || (length_known() && frames_read_ < info_.frames)) {
        throw read_error(path_, "it breaks off before its end");
    }
}
