#include "sndfile.h"

#include <io.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

struct SNDFILE {
    std::FILE* stream;
    SF_INFO info;
    uint64_t left;     // bytes of samples still to be read
    uint64_t promised; // as the header says, and
    uint64_t present;  // as the file has them, if it can be told
    uint64_t written;  // bytes of samples
    int error;
};

namespace {

constexpr uint32_t HEADER_BYTES = 44;
constexpr uint32_t PCM = 1, IEEE_FLOAT = 3, EXTENSIBLE = 0xFFFE; // what the format chunk says
constexpr uint32_t UNKNOWN_LENGTH = 0x7FFF0000;                  // programs that write into pipes say so or more

int open_error = SF_ERR_NO_ERROR;

uint32_t little_endian(const uint8_t* bytes, uint32_t count)
{
    uint32_t value = 0;
    for (uint32_t i = 0; i < count; ++i) {
        value |= static_cast<uint32_t>(bytes[i]) << 8 * i;
    }
    return value;
}

void put(std::string* bytes, uint32_t value, uint32_t count)
{
    for (uint32_t i = 0; i < count; ++i) {
        *bytes += static_cast<char>(value >> 8 * i & 0xFF);
    }
}

uint32_t bytes_of_sample(int format)
{
    switch (format & 0xF) {
    case SF_FORMAT_PCM_U8:
        return 1;
    case SF_FORMAT_PCM_16:
        return 2;
    case SF_FORMAT_PCM_24:
        return 3;
    default:
        return 4;
    }
}

float sample_of(const uint8_t* bytes, int format)
{
    const uint32_t count = bytes_of_sample(format);
    uint8_t ordered[4];
    std::copy(bytes, bytes + count, ordered);
    if ((format & SF_ENDIAN_BIG) != 0) {
        std::reverse(ordered, ordered + count);
    }
    const uint32_t bits = little_endian(ordered, count) << (32 - 8 * count);
    if ((format & 0xF) == SF_FORMAT_FLOAT) {
        float value = 0;
        std::memcpy(&value, &bits, sizeof value);
        return value;
    }
    constexpr float FULL_SCALE = 2147483648.0F;
    const uint32_t offset = (format & 0xF) == SF_FORMAT_PCM_U8 ? 0x80000000U : 0; // bytes have no sign
    return static_cast<float>(static_cast<int32_t>(bits - offset)) / FULL_SCALE;
}

uint64_t frame_bytes(const SNDFILE& file)
{
    return uint64_t{bytes_of_sample(file.info.format)} * static_cast<uint64_t>(file.info.channels);
}

bool skip(std::FILE* stream, uint64_t count) // also through pipes
{
    char rest[4096];
    while (count > 0) {
        const size_t piece = static_cast<size_t>(std::min<uint64_t>(count, sizeof rest));
        if (std::fread(rest, 1, piece, stream) != piece) {
            return false;
        }
        count -= piece;
    }
    return true;
}

// What 16 bytes of a format chunk say; with no channel when it is something else.
SF_INFO info_of(const uint8_t* chunk, uint32_t kind)
{
    SF_INFO info{};
    const uint32_t bits = little_endian(chunk + 14, 2);
    const int pcm[] = {SF_FORMAT_PCM_U8, SF_FORMAT_PCM_16, SF_FORMAT_PCM_24, SF_FORMAT_PCM_32};
    const bool is_pcm = kind == PCM && bits % 8 == 0 && bits >= 8 && bits <= 32;
    const uint32_t rate = little_endian(chunk + 4, 4);
    if ((is_pcm || (kind == IEEE_FLOAT && bits == 32)) && rate > 0 && rate <= INT32_MAX) {
        info.channels = static_cast<int>(little_endian(chunk + 2, 2));
        info.samplerate = static_cast<int>(rate);
        info.format =
            SF_FORMAT_WAV | SF_ENDIAN_LITTLE | (is_pcm ? pcm[bits / 8 - 1] : static_cast<int>(SF_FORMAT_FLOAT));
    }
    return info;
}

// Reads up to the samples. Source of the layout: Microsoft and IBM 1991, "Multimedia Programming Interface and Data
// Specifications 1.0".
int read_header(SNDFILE* file)
{
    uint8_t head[12], chunk[8], format[26];
    if (std::fread(head, 1, 12, file->stream) != 12 || std::memcmp(head, "RIFF", 4) != 0 ||
        std::memcmp(head + 8, "WAVE", 4) != 0) {
        return SF_ERR_UNRECOGNISED_FORMAT;
    }
    while (std::fread(chunk, 1, 8, file->stream) == 8) {
        const uint32_t length = little_endian(chunk + 4, 4);
        if (std::memcmp(chunk, "data", 4) == 0) {
            file->promised = length;
            return file->info.channels > 0 ? SF_ERR_NO_ERROR : SF_ERR_UNSUPPORTED_ENCODING;
        }
        uint64_t rest = uint64_t{length} + length % 2;
        if (std::memcmp(chunk, "fmt ", 4) == 0 && length >= 16) {
            const size_t known = std::min<size_t>(length, sizeof format);
            if (std::fread(format, 1, known, file->stream) != known) {
                return SF_ERR_UNSUPPORTED_ENCODING;
            }
            const uint32_t kind = little_endian(format, 2);
            // The longer form names the kind in the first bytes of an identifier of its own.
            file->info = info_of(format, kind == EXTENSIBLE && known == 26 ? little_endian(format + 24, 2) : kind);
            rest -= known;
        }
        if (!skip(file->stream, rest)) {
            break;
        }
    }
    return SF_ERR_UNSUPPORTED_ENCODING;
}

// How much there is, and so whether it is all that the header promises.
void measure(SNDFILE* file)
{
    const int64_t length = _filelengthi64(_fileno(file->stream));
    const int64_t here = _ftelli64(file->stream);
    file->info.seekable = length > 0 && here >= 0 && length >= here ? 1 : 0;
    file->present = file->info.seekable != 0 ? static_cast<uint64_t>(length - here) : 0;
    const bool raw = (file->info.format & SF_FORMAT_RAW) == SF_FORMAT_RAW;
    file->left = raw || file->promised >= UNKNOWN_LENGTH ? UINT64_MAX : file->promised;
    file->left = file->info.seekable != 0 ? std::min(file->left, file->present) : file->left;
    file->info.frames =
        file->left == UINT64_MAX ? SF_COUNT_MAX : static_cast<sf_count_t>(file->left / frame_bytes(*file));
}

std::string header_of(const SNDFILE& file)
{
    const auto bytes = static_cast<uint32_t>(frame_bytes(file));
    const auto rate = static_cast<uint32_t>(file.info.samplerate);
    const auto length = static_cast<uint32_t>(std::min<uint64_t>(file.written, UINT32_MAX - HEADER_BYTES));
    std::string header = "RIFF";
    put(&header, HEADER_BYTES - 8 + length, 4);
    header += "WAVEfmt ";
    put(&header, 16, 4);
    put(&header, PCM, 2);
    put(&header, static_cast<uint32_t>(file.info.channels), 2);
    put(&header, rate, 4);
    put(&header, rate * bytes, 4);
    put(&header, bytes, 2);
    put(&header, 16, 2);
    header += "data";
    put(&header, length, 4);
    return header;
}

bool write_header(const SNDFILE& file)
{
    const std::string header = header_of(file);
    return std::fseek(file.stream, 0, SEEK_SET) == 0 &&
           std::fwrite(header.data(), 1, header.size(), file.stream) == header.size();
}

} // namespace

SNDFILE* sf_open_fd(int descriptor, int mode, SF_INFO* info, int close_with_file)
{
    const int own = close_with_file != 0 ? descriptor : _dup(descriptor);
    auto file = std::make_unique<SNDFILE>(SNDFILE{_fdopen(own, mode == SFM_READ ? "rb" : "wb"), *info, 0, 0, 0, 0, 0});
    if (file->stream == nullptr) {
        open_error = SF_ERR_SYSTEM;
        return nullptr;
    }
    if (mode == SFM_WRITE) {
        open_error = write_header(*file) ? SF_ERR_NO_ERROR : SF_ERR_SYSTEM;
    } else if ((info->format & SF_FORMAT_RAW) == SF_FORMAT_RAW) {
        open_error = SF_ERR_NO_ERROR;
        measure(file.get());
    } else {
        open_error = read_header(file.get());
        if (open_error == SF_ERR_NO_ERROR) {
            measure(file.get());
        }
    }
    if (open_error != SF_ERR_NO_ERROR) {
        std::fclose(file->stream);
        return nullptr;
    }
    *info = file->info;
    return file.release();
}

int sf_close(SNDFILE* file)
{
    const std::unique_ptr<SNDFILE> owner{file};
    if (file == nullptr) {
        return SF_ERR_NO_ERROR;
    }
    const bool written = file->written == 0 || write_header(*file);
    return std::fclose(file->stream) == 0 && written ? SF_ERR_NO_ERROR : SF_ERR_SYSTEM;
}

sf_count_t sf_readf_float(SNDFILE* file, float* interleaved, sf_count_t frames)
{
    const uint64_t bytes = frame_bytes(*file);
    const uint64_t wanted = std::min<uint64_t>(static_cast<uint64_t>(frames), file->left / bytes);
    std::vector<uint8_t> raw(static_cast<size_t>(wanted * bytes));
    const size_t got = std::fread(raw.data(), static_cast<size_t>(bytes), static_cast<size_t>(wanted), file->stream);
    file->error = std::ferror(file->stream) != 0 ? SF_ERR_SYSTEM : file->error;
    file->left -= file->left == UINT64_MAX ? 0 : got * bytes;
    const uint32_t step = bytes_of_sample(file->info.format);
    for (size_t i = 0; i < got * static_cast<size_t>(file->info.channels); ++i) {
        interleaved[i] = sample_of(&raw[i * step], file->info.format);
    }
    return static_cast<sf_count_t>(got);
}

sf_count_t sf_writef_short(SNDFILE* file, const int16_t* interleaved, sf_count_t frames)
{
    if (file == nullptr) {
        return 0;
    }
    const auto bytes = static_cast<size_t>(frame_bytes(*file)); // Windows' processors are little-endian
    const size_t done = std::fwrite(interleaved, bytes, static_cast<size_t>(frames), file->stream);
    file->written += done * bytes;
    return static_cast<sf_count_t>(done);
}

int sf_error(const SNDFILE* file) { return file == nullptr ? open_error : file->error; }

const char* sf_strerror(const SNDFILE* file)
{
    switch (sf_error(file)) {
    case SF_ERR_NO_ERROR:
        return "No Error";
    case SF_ERR_UNRECOGNISED_FORMAT:
        return "this build of kosc reads WAV alone, and this is another format";
    case SF_ERR_UNSUPPORTED_ENCODING:
        return "its samples are neither PCM of 8 to 32 bits nor 32-bit float";
    default:
        return "the system cannot read or write it";
    }
}

// libsndfile's note on a file that ends too early, as the command looks for it.
int sf_command(const SNDFILE* file, int, char* text, int size)
{
    if (file->info.seekable != 0 && file->promised > file->present) {
        std::snprintf(text, static_cast<size_t>(size), "\ndata : %llu (should be %llu)\n",
                      static_cast<unsigned long long>(file->promised), static_cast<unsigned long long>(file->present));
    }
    return 0;
}
