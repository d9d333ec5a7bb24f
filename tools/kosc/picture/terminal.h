// What the command writes to its standard streams.
#ifndef KOSC_TOOL_TERMINAL_H
#define KOSC_TOOL_TERMINAL_H

#include <cstddef>
#include <stdexcept>
#include <string_view>

// Nobody reads standard output any more.
class reader_gone : public std::runtime_error {
public:
    reader_gone() : std::runtime_error("cannot write to standard output: its reader has gone") {}
};

// Writes to standard output at once, not when a buffer is full; throws when that fails, reader_gone or other.
void write_output(std::string_view bytes);

// Throws reader_gone when it would be thrown by write_output(): for who waits long for something to write.
void check_output_reader();

// The columns of the terminal behind `descriptor`, as it says or as COLUMNS does, whichever is less; 80 if neither.
size_t terminal_columns(int descriptor);

#endif
