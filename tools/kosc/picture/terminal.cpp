#include "picture/terminal.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

void write_output(std::string_view bytes)
{
    if (std::fwrite(bytes.data(), 1, bytes.size(), stdout) != bytes.size() || std::fflush(stdout) != 0) {
        if (errno == EPIPE) {
            throw reader_gone();
        }
        throw std::runtime_error("cannot write to standard output: " + std::string(std::strerror(errno)));
    }
}

void check_output_reader()
{
    pollfd output{STDOUT_FILENO, 0, 0};
    if (poll(&output, 1, 0) > 0 && (output.revents & POLLERR) != 0) {
        throw reader_gone();
    }
}

size_t terminal_columns(int descriptor)
{
    constexpr size_t USUAL = 80;
    winsize size{};
    const size_t told = ioctl(descriptor, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
    const char* const variable = std::getenv("COLUMNS");
    const size_t wanted = variable != nullptr ? std::strtoul(variable, nullptr, 10) : 0;
    if (told == 0 || wanted == 0) {
        return told + wanted != 0 ? told + wanted : USUAL;
    }
    return std::min(told, wanted);
}
