// The options of whoever listens: which receivers hear beside the plain one.
#ifndef KOSC_TOOL_HEARING_OPTIONS_H
#define KOSC_TOOL_HEARING_OPTIONS_H

#include "commands/listener.h"

namespace CLI {
class App;
}

// Adds --plain, --combine and --crowd. The record must live as long as the parser.
void add_hearing_options(CLI::App& command, hearing_options& options);

#endif
