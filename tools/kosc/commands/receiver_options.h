// The options of whoever receives: what receivers there are beside the plain one.
#ifndef KOSC_TOOL_RECEIVER_OPTIONS_H
#define KOSC_TOOL_RECEIVER_OPTIONS_H

#include "commands/listener.h"

namespace CLI {
class App;
}

// Adds --plain, --combine and --crowd. The record must live as long as the parser.
void add_receiver_options(CLI::App& command, receiver_options& options);

#endif
