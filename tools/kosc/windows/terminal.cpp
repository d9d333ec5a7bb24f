#include "picture/terminal.h"

#include <fcntl.h>
#include <io.h>
#define WIN32_LEAN_AND_MEAN
#include <windows.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

void write_output(std::string_view bytes)
{
    _setmode(_fileno(stdout), _O_BINARY); // sound, or lines that end as on other systems
    SetConsoleOutputCP(CP_UTF8);
    if (std::fwrite(bytes.data(), 1, bytes.size(), stdout) != bytes.size() || std::fflush(stdout) != 0) {
        throw std::runtime_error("cannot write to standard output: " + std::string(std::strerror(errno)));
    }
}

void check_output_reader() {}

size_t terminal_columns(int descriptor)
{
    constexpr size_t USUAL = 80;
    CONSOLE_SCREEN_BUFFER_INFO screen{};
    const auto console = reinterpret_cast<HANDLE>(_get_osfhandle(descriptor));
    return GetConsoleScreenBufferInfo(console, &screen) != 0 && screen.dwSize.X > 0
               ? static_cast<size_t>(screen.dwSize.X)
               : USUAL;
}
