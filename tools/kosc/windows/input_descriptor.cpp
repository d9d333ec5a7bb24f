#include "audio/input_descriptor.h"

#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>
#define WIN32_LEAN_AND_MEAN
#include <windows.h>

#include <cerrno>
#include <cstdio>
#include <system_error>

#include "audio/sound_writer.h"
#include "commands/commands.h"

// The C library's own would lie in the root of a drive, where only administrators may write.
std::FILE* temporary_file()
{
    char folder[MAX_PATH + 1];
    char name[MAX_PATH + 1];
    errno = EACCES;
    return GetTempPathA(sizeof folder, folder) != 0 && GetTempFileNameA(folder, "kosc", 0, name) != 0
               ? std::fopen(name, "w+bTD")
               : nullptr;
}

// Files of sound are read as they lie there, and so is standard input, whether a file or a pipe.
input_descriptor open_input(const std::string& path, bool headerless)
{
    const bool standard = path == STANDARD_STREAM;
    const int from = standard ? _dup(_fileno(stdin)) : _open(path.c_str(), _O_RDONLY | _O_BINARY);
    if (from < 0 || _setmode(from, _O_BINARY) < 0) {
        throw std::system_error(errno, std::generic_category());
    }
    struct _stat64 status {};
    const bool whole = _fstat64(from, &status) == 0 && (status.st_mode & _S_IFREG) != 0;
    if (!whole || headerless) {
        return {from, whole, "RIFF"}; // nothing can be looked at beforehand
    }
    constexpr unsigned HEAD = 12;
    std::string head(HEAD, '\0');
    const int got = _read(from, head.data(), HEAD);
    head.resize(got > 0 ? static_cast<size_t>(got) : 0);
    _lseeki64(from, -static_cast<int64_t>(head.size()), SEEK_CUR);
    return {from, true, head};
}
