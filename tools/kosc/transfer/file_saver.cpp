#include "transfer/file_saver.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "audio/sound_writer.h"
#include "commands/message_text.h"

namespace {

namespace fs = std::filesystem;

constexpr size_t LONGEST_NAME = 255; // of Linux's file systems

// The length of a character of UTF-8 that begins with `lead`.
size_t length_of(char lead)
{
    const auto byte = static_cast<uint8_t>(lead);
    return byte < 0x80 ? 1 : byte < 0xE0 ? 2 : byte < 0xF0 ? 3 : 4;
}

// Marks that turn the direction of what follows or are not seen: a name could seem to end differently.
bool deceives(const std::string& character)
{
    const auto between = [&](const char* low, const char* high) { return character >= low && character <= high; };
    return between("\u200B", "\u200F") || between("\u2028", "\u202E") || between("\u2060", "\u206F") ||
           character == "\u061C" || character == "\uFEFF";
}

// `name` with `number` before its ending, cut so that it is no longer than a name may be.
std::string numbered(const std::string& name, uint32_t number)
{
    if (number == 1) {
        return name;
    }
    const size_t dot = name.rfind('.');
    const std::string ending = dot == std::string::npos ? "" : name.substr(dot);
    const std::string added = "-" + std::to_string(number) + ending;
    std::string stem = name.substr(0, name.size() - ending.size());
    while (stem.size() + added.size() > LONGEST_NAME && !stem.empty()) {
        stem.pop_back();
    }
    return stem + added;
}

} // namespace

std::string safe_name(const std::string& sent, const std::string& fallback)
{
    if (!is_utf8(sent)) {
        return fallback;
    }
    std::string name;
    for (size_t i = 0; i < sent.size();) {
        const std::string character = sent.substr(i, length_of(sent[i]));
        i += character.size();
        if (character == "/" || character == "\\") {
            name.clear();
        } else {
            name += has_controls(character) || deceives(character) ? "_" : character;
        }
    }
    if (name.find_first_not_of(" .") == std::string::npos) {
        return fallback;
    }
    if (name[0] == '.' || name[0] == '-') { // hidden files, and what commands take for options
        name[0] = '_';
    }
    return name;
}

file_saver::file_saver(std::string folder, bool overwrite) : folder_(std::move(folder)), overwrite_(overwrite)
{
    if (!fs::is_directory(folder_)) {
        throw std::runtime_error("cannot save into '" + folder_ + "': it is no folder");
    }
    if (access(folder_.c_str(), W_OK | X_OK) != 0) {
        throw file_error("save into", folder_);
    }
}

std::string file_saver::save(const std::string& name, const std::string& contents) const
{
    // Written beside its place, so that a full disk spoils nothing.
    std::string part = folder_ + "/.kosc-XXXXXX";
    const int file = mkostemp(part.data(), O_CLOEXEC);
    if (file < 0) {
        throw file_error("save into", folder_);
    }
    const mode_t mask = umask(0);
    umask(mask);
    const stream_ptr stream{fdopen(file, "wb")};
    const bool written = stream && fchmod(file, 0666 & ~mask) == 0 &&
                         std::fwrite(contents.data(), 1, contents.size(), stream.get()) == contents.size() &&
                         std::fflush(stream.get()) == 0;
    int failure = written ? EEXIST : errno;
    constexpr uint32_t MOST_NUMBERS = 1000;
    std::string place;
    for (uint32_t number = 1; failure == EEXIST && number <= MOST_NUMBERS; ++number) {
        place = folder_ + "/" + numbered(name, number);
        // A hard link is the one way to name a file that overwrites nothing, whoever else writes there.
        const int linked = overwrite_ ? std::rename(part.c_str(), place.c_str()) : link(part.c_str(), place.c_str());
        failure = linked == 0 ? 0 : errno;
        if (failure == EPERM && !fs::exists(fs::symlink_status(place))) { // a file system without them
            failure = std::rename(part.c_str(), place.c_str()) == 0 ? 0 : errno;
        } else if (failure == EPERM) {
            failure = EEXIST;
        }
    }
    unlink(part.c_str());
    if (failure != 0) {
        errno = failure;
        throw file_error("save", written ? place : part);
    }
    return place;
}
