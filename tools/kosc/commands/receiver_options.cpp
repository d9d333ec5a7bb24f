#include "commands/receiver_options.h"

#include <CLI/CLI.hpp>

void add_receiver_options(CLI::App& command, receiver_options& options)
{
    auto* const plain =
        command.add_flag("--plain", options.plain, "no second look at frames that do not decode at once");
    command.add_flag("--combine", options.combine,
                     "add up repeats of a message, and two microphones: heard from deeper in the noise");
    command.add_flag("--crowd", options.crowd, "hear frames of many senders that overlap")->excludes(plain);
}
