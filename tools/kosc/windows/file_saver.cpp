#include "transfer/file_saver.h"

#define WIN32_LEAN_AND_MEAN
#include <windows.h>

#include <algorithm>
#include <filesystem>
#include <regex>
#include <stdexcept>
#include <system_error>

#include "audio/sound_writer.h"
#include "transfer/file_name.h"

namespace {

std::runtime_error system_error(const std::string& what, DWORD error)
{
    return std::runtime_error(what + ": " + std::system_category().message(static_cast<int>(error)));
}

// A safe name without what Windows reads in other ways: drives and streams behind colons, devices such as con.txt, and
// wildcards. It drops dots and spaces at the end, and would then find another file.
// Source: Microsoft, "Naming Files, Paths, and Namespaces".
std::string windows_name(std::string name)
{
    static const std::regex device("(con|prn|aux|nul|conin\\$|conout\\$|(com|lpt)([0-9]|\u00B9|\u00B2|\u00B3))"
                                   " *(\\..*)?",
                                   std::regex::icase);
    const std::string read_otherwise = "<>:\"|?*";
    std::replace_if(
        name.begin(), name.end(), [&](char letter) { return read_otherwise.find(letter) != std::string::npos; }, '_');
    if (name.back() == '.' || name.back() == ' ') {
        name.back() = '_';
    }
    if (std::regex_match(name, device)) {
        name[0] = '_';
    }
    return name;
}

} // namespace

file_saver::file_saver(std::string folder, bool overwrite) : folder_(std::move(folder)), overwrite_(overwrite)
{
    std::error_code ignored;
    if (!std::filesystem::is_directory(std::filesystem::u8path(folder_), ignored)) {
        throw std::runtime_error("cannot save into '" + folder_ + "': it is no folder");
    }
}

std::string file_saver::save(const std::string& name, const std::string& contents) const
{
    // Written beside its place, so that a full disk spoils nothing.
    char part[MAX_PATH + 1];
    if (GetTempFileNameA(folder_.c_str(), "kosc", 0, part) == 0) {
        throw system_error("cannot save into '" + folder_ + "'", GetLastError());
    }
    std::string place;
    try {
        write_file(part, contents);
        DWORD failure = ERROR_ALREADY_EXISTS;
        constexpr uint32_t MOST_NUMBERS = 1000;
        for (uint32_t number = 1; failure == ERROR_ALREADY_EXISTS && number <= MOST_NUMBERS; ++number) {
            place = folder_ + "/" + numbered_name(windows_name(name), number);
            const DWORD how = overwrite_ ? MOVEFILE_REPLACE_EXISTING : 0; // else nothing is, whoever writes there too
            failure = MoveFileExA(part, place.c_str(), how) != 0 ? ERROR_SUCCESS : GetLastError();
        }
        if (failure != ERROR_SUCCESS) {
            throw system_error("cannot save '" + place + "'", failure);
        }
    } catch (...) {
        DeleteFileA(part);
        throw;
    }
    return place;
}
