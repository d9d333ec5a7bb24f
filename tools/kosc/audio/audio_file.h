// A recording as a stream of 16-bit samples at the modem's rate, whatever the file's format and rate.
#ifndef KOSC_TOOL_AUDIO_FILE_H
#define KOSC_TOOL_AUDIO_FILE_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "audio/sound_bands.h"
#include "audio/sound_writer.h"
#include "kosc/kosc.hpp"
#include "resampler.h"

// A sample of full scale 1 as 16-bit PCM, clipped; a value that is not a number becomes silence.
int16_t to_pcm(float sample);
// So many frames of interleaved ones, one vector a channel.
void to_pcm(const std::vector<float>& interleaved, size_t frames, uint32_t channels,
            std::vector<std::vector<int16_t>>& pcm);

class audio_file {
public:
    // Throws when the file cannot be read, has too many channels, or a rate that carries none of the bands.
    // `raw` is the format of samples without a header, as raw_format() reads it; empty: the file tells.
    explicit audio_file(const std::string& path, const std::string& raw = {},
                        const band_list& bands = {default_band()});
    audio_file(const audio_file&) = delete;
    audio_file& operator=(const audio_file&) = delete;

    uint32_t channels() const { return static_cast<uint32_t>(info_.channels); }
    uint32_t sample_rate() const { return static_cast<uint32_t>(info_.samplerate); }
    // Those of the bands asked for that its rate has room for: at least one.
    const band_list& bands() const { return bands_; }
    // 0 when the file does not tell, or is a pipe, whose header may promise anything.
    double seconds() const { return length_known() ? static_cast<double>(info_.frames) / info_.samplerate : 0.0; }

    // The next samples at the modem's rate, one vector a channel, all of one length; false, and empty, at the end.
    // A 16-bit file at that rate comes through bit by bit, anything beyond full scale is clipped.
    bool read(std::vector<std::vector<int16_t>>& pcm);

    // All of it, one vector a channel. Throws `too_long` when that is more than so many samples, of all channels
    // together, and like check_complete().
    std::vector<std::vector<int16_t>> read_all(size_t most, const std::string& too_long);

    // Called with every sample before conversion, interleaved, -1 to 1, during read().
    using observer = std::function<void(const float* interleaved, size_t frames)>;
    void observe(observer callback) { observer_ = std::move(callback); }

    // Throws when read() met damage instead of the end; warns, unless `quiet`, when there was less than announced.
    void check_complete(bool quiet = false) const;

private:
    bool length_known() const { return info_.seekable != 0 && info_.frames < SF_COUNT_MAX; }
    void open(const std::string& raw);
    size_t read_raw();
    size_t read_frames();

    std::string path_;
    SF_INFO info_{};
    band_list bands_;
    observer observer_;
    bool truncated_ = false; // shorter than its header says
    sf_count_t frames_read_ = 0;
    sound_ptr file_;
    std::optional<kosc_inspect::resampler> converter_; // none at the modem's own rate
    std::vector<float> raw_;                           // interleaved, at the file's rate
    std::vector<float> converted_;                     // interleaved, at the modem's
};

#endif
