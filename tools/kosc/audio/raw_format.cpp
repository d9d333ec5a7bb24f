#include "audio/raw_format.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <stdexcept>

namespace {

// The names that ffmpeg gives them; without an ending they are little-endian.
constexpr struct {
    const char* name;
    int format;
} SAMPLES[] = {
    {"u8", SF_FORMAT_PCM_U8},
    {"s16", SF_FORMAT_PCM_16 | SF_ENDIAN_LITTLE},
    {"s16le", SF_FORMAT_PCM_16 | SF_ENDIAN_LITTLE},
    {"s16be", SF_FORMAT_PCM_16 | SF_ENDIAN_BIG},
    {"s24", SF_FORMAT_PCM_24 | SF_ENDIAN_LITTLE},
    {"s24le", SF_FORMAT_PCM_24 | SF_ENDIAN_LITTLE},
    {"s24be", SF_FORMAT_PCM_24 | SF_ENDIAN_BIG},
    {"s32", SF_FORMAT_PCM_32 | SF_ENDIAN_LITTLE},
    {"s32le", SF_FORMAT_PCM_32 | SF_ENDIAN_LITTLE},
    {"s32be", SF_FORMAT_PCM_32 | SF_ENDIAN_BIG},
    {"f32", SF_FORMAT_FLOAT | SF_ENDIAN_LITTLE},
    {"f32le", SF_FORMAT_FLOAT | SF_ENDIAN_LITTLE},
    {"f32be", SF_FORMAT_FLOAT | SF_ENDIAN_BIG},
};

} // namespace

SF_INFO raw_format(const std::string& text)
{
    int rate = 0;
    int channels = 0;
    char name[8] = {};
    char rest = 0;
    const bool read = std::sscanf(text.c_str(), "%7d:%7[a-z0-9]:%2d%c", &rate, name, &channels, &rest) == 3;
    const auto* const found = std::find_if(std::begin(SAMPLES), std::end(SAMPLES),
                                           [&](const auto& each) { return each.name == std::string(name); });
    if (!read || rate <= 0 || channels <= 0 || found == std::end(SAMPLES)) {
        throw std::runtime_error("--raw takes RATE:FORMAT:CHANNELS with a format of u8, s16, s24, s32 or f32, or of "
                                 "s16be and so on, as in 48000:s16:1, not '" +
                                 text + "'");
    }
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = channels;
    info.format = SF_FORMAT_RAW | found->format;
    return info;
}
