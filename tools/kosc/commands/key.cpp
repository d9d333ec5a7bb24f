#include <memory>

#include <CLI/CLI.hpp>

#include "commands/commands.h"
#include "transfer/seal.h"

int run_key(const std::string& path)
{
    make_key_file(path);
    return EXIT_DONE;
}

subcommand add_key(CLI::App& app)
{
    const auto path = std::make_shared<std::string>();
    CLI::App* const key = app.add_subcommand("key", "Make a key that seals and opens transfers");
    key->add_option("file", *path, "the new file")->required();
    key->footer(
        R"(Writes 64 random hexadecimal digits, 256 bits, into a new file that only its owner can read. Give it to those who are to
read what you send, by a way that nobody else reads: whoever has it can also send in your name.
Exit code: 0 the file is written, 2 there is one of that name, or it cannot be written.)");
    return {key, [path](bool) { return run_key(*path); }};
}
