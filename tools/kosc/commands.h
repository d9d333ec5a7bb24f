// The subcommands. Each returns the exit code, or throws std::runtime_error with a sentence for the user.
#ifndef KOSC_TOOL_COMMANDS_H
#define KOSC_TOOL_COMMANDS_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

enum exit_code { EXIT_DONE = 0, EXIT_NONE_HEARD = 1, EXIT_FAILED = 2 };

namespace CLI {
class App;
}

// A subcommand as the command line knows it, and what it does with the options that were given.
struct subcommand {
    CLI::App* parser;
    std::function<int(bool verbose)> run;
};

// A path that stands for standard input or output.
constexpr const char* STANDARD_STREAM = "-";

struct encode_options {
    std::optional<std::string> text; // STANDARD_STREAM: read it from there
    std::optional<std::string> hex;
    std::optional<std::string> file;
    std::string output;
    uint32_t pad_ms = 100; // many players swallow the first and last hundredth of a second
};

struct decode_options {
    std::string input;
    bool hex = false;
    bool json = false;
    bool quiet = false;
    bool plain = false; // no second look
    bool verbose = false;
};

int run_encode(const encode_options& options);
int run_decode(const decode_options& options);
int run_info();

#endif
