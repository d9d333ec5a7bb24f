// The options of whoever sends or receives transfers.
#ifndef KOSC_TOOL_TRANSFER_OPTIONS_H
#define KOSC_TOOL_TRANSFER_OPTIONS_H

#include "transfer/collector.h"

namespace CLI {
class App;
}

// Adds --key, --passphrase-file and --ask-passphrase, of which one may be given. The records of these functions must
// live as long as the parser.
void add_key_options(CLI::App& command, key_options& options);
// Adds --save, --force, --max-size, --max-age and --single, and the former.
void add_receive_options(CLI::App& command, receive_options& options);

#endif
