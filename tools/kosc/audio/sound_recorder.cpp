#include "audio/sound_recorder.h"

sound_recorder::sound_recorder(const std::string& path, uint32_t channels) : path_(path)
{
    const int container = sound_container(path);
    stream_.reset(std::fopen(path.c_str(), "wb"));
    if (!stream_) {
        throw file_error("write", path);
    }
    // RF64 has 64-bit lengths, and is plain WAV as long as it can be.
    file_ = open_to_write(stream_.get(), container == SF_FORMAT_WAV ? SF_FORMAT_RF64 : container, channels);
    if (!file_) {
        throw std::runtime_error("cannot write '" + path + "': " + sf_strerror(nullptr));
    }
    sf_command(file_.get(), SFC_RF64_AUTO_DOWNGRADE, nullptr, SF_TRUE);
    sf_command(file_.get(), SFC_SET_UPDATE_HEADER_AUTO, nullptr, SF_TRUE);
}

void sound_recorder::write(const std::vector<std::vector<int16_t>>& pcm)
{
    const auto frames = static_cast<sf_count_t>(pcm.front().size());
    if (sf_writef_short(file_.get(), interleaved(pcm).data(), frames) != frames) {
        throw file_error("write", path_);
    }
}

void sound_recorder::close()
{
    if (sf_close(file_.release()) != SF_ERR_NO_ERROR) {
        throw file_error("write", path_);
    }
}
