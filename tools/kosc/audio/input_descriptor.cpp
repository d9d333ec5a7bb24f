#include "audio/input_descriptor.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <thread>

#include "audio/sound_writer.h"
#include "commands/commands.h"

namespace {

constexpr size_t HEAD = 12; // names every format

[[noreturn]] void fail() { throw std::system_error(errno, std::generic_category()); }

// What a descriptor yields up to its end, or up to `most` bytes.
std::string read_up_to(int from, size_t most)
{
    std::string bytes(most, '\0');
    size_t got = 0;
    while (got < most) {
        const ssize_t more = ::read(from, &bytes[got], most - got);
        if (more < 0 && errno != EINTR) {
            fail();
        }
        if (more == 0) {
            break;
        }
        got += more < 0 ? 0 : static_cast<size_t>(more);
    }
    bytes.resize(got);
    return bytes;
}

bool write_all(int to, const std::string& bytes)
{
    for (size_t done = 0; done < bytes.size();) {
        const ssize_t more = ::write(to, bytes.data() + done, bytes.size() - done);
        if (more < 0 && errno != EINTR) {
            return false;
        }
        done += more < 0 ? 0 : static_cast<size_t>(more);
    }
    return true;
}

// Copies from one descriptor to another until the one ends or nobody reads the other.
bool copy(std::string head, int from, int to)
{
    constexpr size_t PIECE = 1U << 12; // little, so that what comes slowly is passed on soon
    while (!head.empty()) {
        if (!write_all(to, head)) {
            return false;
        }
        head.resize(PIECE);
        ssize_t got = 0;
        do {
            got = ::read(from, head.data(), PIECE);
        } while (got < 0 && errno == EINTR);
        if (got < 0) {
            return false;
        }
        head.resize(static_cast<size_t>(got));
    }
    return true;
}

// A pipe that yields what was taken from `from` already, and then the rest of it as it comes.
int joined(const std::string& head, int from)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        fail();
    }
    // Not waited for: it may wait for more sound for ever, long after the command has heard enough.
    std::thread([head, from, to = ends[1]] {
        copy(head, from, to);
        ::close(to);
        ::close(from);
    }).detach();
    return ends[0];
}

// A file without a name that holds it all.
int stored(const std::string& head, int from)
{
    const stream_ptr file{temporary_file()};
    if (!file || !copy(head, from, fileno(file.get()))) {
        fail();
    }
    ::close(from);
    const int own = ::fcntl(fileno(file.get()), F_DUPFD_CLOEXEC, 0);
    if (own < 0 || ::lseek(own, 0, SEEK_SET) != 0) {
        fail();
    }
    return own;
}

bool reads_forwards_only(const std::string& head)
{
    const std::string mark = head.substr(0, 4);
    return mark == "RIFF" || mark == "RIFX" || mark == ".snd";
}

} // namespace

std::FILE* temporary_file() { return std::tmpfile(); }

input_descriptor open_input(const std::string& path, bool headerless)
{
    const int from = path == STANDARD_STREAM ? ::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)
                                             : ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (from < 0) {
        fail();
    }
    struct stat status {};
    const bool whole = ::fstat(from, &status) == 0 && S_ISREG(status.st_mode);
    if (headerless && !whole) {
        return {from, false, {}};
    }
    const std::string head = read_up_to(from, HEAD);
    if (whole) {
        ::lseek(from, -static_cast<off_t>(head.size()), SEEK_CUR);
        return {from, true, head};
    }
    const bool flows = reads_forwards_only(head);
    return {flows ? joined(head, from) : stored(head, from), !flows, head};
}
