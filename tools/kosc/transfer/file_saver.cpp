#include "transfer/file_saver.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <stdexcept>

#include "audio/sound_writer.h"
#include "transfer/file_name.h"

namespace fs = std::filesystem;

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
        place = folder_ + "/" + numbered_name(name, number);
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
