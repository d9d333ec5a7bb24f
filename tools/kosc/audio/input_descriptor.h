// A recording's bytes as libsndfile can read them, also from a pipe.
#ifndef KOSC_TOOL_INPUT_DESCRIPTOR_H
#define KOSC_TOOL_INPUT_DESCRIPTOR_H

#include <string>

struct input_descriptor {
    int number;       // the reader closes it
    bool whole;       // all of it is there and can be sought in; else it comes as it is made
    std::string head; // its first bytes, as far as there are any; they are still to be read
};

// Opens a file, or standard input. What comes through a pipe is read to its end first, except for formats that are read
// from front to end alone: WAV and AU, and samples without a header. Throws what errno says.
input_descriptor open_input(const std::string& path, bool headerless);

#endif
