// The calls of libsndfile that the command makes, for Windows, where Debian has no libsndfile to build with: WAV and
// samples without a header, read and written from front to end.
#ifndef KOSC_TOOL_WINDOWS_SNDFILE_H
#define KOSC_TOOL_WINDOWS_SNDFILE_H

#include <cstdint>

struct SNDFILE;
using sf_count_t = int64_t;
constexpr sf_count_t SF_COUNT_MAX = INT64_MAX;

struct SF_INFO {
    sf_count_t frames;
    int samplerate;
    int channels;
    int format;
    int seekable;
};

// Containers, samples and byte orders, to be combined.
enum {
    SF_FORMAT_WAV = 0x10000,
    SF_FORMAT_RAW = 0x20000,
    SF_FORMAT_PCM_U8 = 1,
    SF_FORMAT_PCM_16,
    SF_FORMAT_PCM_24,
    SF_FORMAT_PCM_32,
    SF_FORMAT_FLOAT,
    SF_ENDIAN_LITTLE = 0x100,
    SF_ENDIAN_BIG = 0x200,
};
enum { SFM_READ, SFM_WRITE };
enum { SF_ERR_NO_ERROR, SF_ERR_UNRECOGNISED_FORMAT, SF_ERR_SYSTEM, SF_ERR_UNSUPPORTED_ENCODING };
enum { SFC_GET_LOG_INFO };

// Null when that fails; sf_error(nullptr) tells why. The descriptor is closed with the file if `close_with_file`.
SNDFILE* sf_open_fd(int descriptor, int mode, SF_INFO* info, int close_with_file);
int sf_close(SNDFILE* file);
sf_count_t sf_readf_float(SNDFILE* file, float* interleaved, sf_count_t frames);
sf_count_t sf_writef_short(SNDFILE* file, const int16_t* interleaved, sf_count_t frames);
int sf_error(const SNDFILE* file);
const char* sf_strerror(const SNDFILE* file);
int sf_command(const SNDFILE* file, int command, char* text, int size);

#endif
