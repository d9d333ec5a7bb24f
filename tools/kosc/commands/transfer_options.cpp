#include "commands/transfer_options.h"

#include <CLI/CLI.hpp>

#include "commands/number_in.h"

#ifdef _WIN32 // where nothing seals or opens
void add_key_options(CLI::App&, key_options&) {}
#else
void add_key_options(CLI::App& command, key_options& options)
{
    auto* const key = command.add_option("--key", options.key_file,
                                         "seal or open transfers with the key in this file, as kosc key makes it");
    auto* const phrase =
        command
            .add_option("--passphrase-file", options.phrase_file,
                        "the same with a key made of the pass phrase in this file; - reads standard input")
            ->excludes(key);
    command.add_flag("--ask-passphrase", options.ask, "the same with a pass phrase that is asked for")
        ->excludes(key)
        ->excludes(phrase);
}
#endif

void add_receive_options(CLI::App& command, receive_options& options)
{
    auto* const save = command.add_option("--save", options.save_folder, "a folder for the files that come");
    command.add_flag("--force", options.overwrite, "overwrite files there; else a number is added to the name")
        ->needs(save);
    command.add_option("--max-size", options.longest, "refuse transfers of more bytes")
        ->check(CLI::Range(1U, uint32_t{KOSC_TRANSFER_MAX_BYTES}))
        ->capture_default_str();
    command.add_flag("--single", options.single, "print the messages of transfers one by one")->excludes(save);
    add_key_options(command, options.key);
#ifndef _WIN32
    constexpr double LONGEST_AGE = 1e9;
    command
        .add_option("--max-age", options.window,
                    "seconds by which the time of a seal may differ from this clock; 0: any time")
        ->check(number_in(0.0, LONGEST_AGE))
        ->capture_default_str();
#endif
}
