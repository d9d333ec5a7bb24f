// The subcommands. Each returns the exit code, or throws std::runtime_error with a sentence for the user.
#ifndef KOSC_TOOL_COMMANDS_H
#define KOSC_TOOL_COMMANDS_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "audio/sound_bands.h"
#include "commands/listener.h"
#include "path.h"
#include "transfer/collector.h"

enum exit_code { EXIT_DONE = 0, EXIT_NO_MESSAGE = 1, EXIT_FAILED = 2 };

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
    band_list bands = {default_band()};
    uint32_t pad_ms = 100; // many players swallow the first and last hundredth of a second
    bool as_file = false;  // also what fits into one message
    uint32_t rounds = 1;
    uint32_t gap_ms = 0; // between the frames of a transfer
    key_options key;
};

// What --raw says in the help of every command that has it.
constexpr const char* RAW_HELP = "RATE:FORMAT:CHANNELS of samples without a header, such as 48000:s16:1";

struct decode_options {
    std::vector<std::string> inputs;
    std::string raw; // empty: files tell
    band_list bands = {default_band()};
    bool hex = false;
    bool json = false;
    bool quiet = false;
    bool verbose = false;
    receiver_options receiver;
    receive_options transfers;
};

struct send_options {
    std::vector<std::string> texts; // STANDARD_STREAM: each line of it
    std::optional<std::string> hex;
    std::optional<std::string> file;
    std::string device;
    band_list bands = {default_band()};
    uint32_t repeat = 1;
    uint32_t rounds = 1;            // of a transfer; 0: without end
    std::optional<uint32_t> gap_ms; // none: 100, which lets the echoes of a room die away, and 0 in transfers
    double volume = 1.0;
    key_options key;
};

struct listen_options {
    std::string device;
    band_list bands = {default_band()};
    uint32_t channels = 0; // 0: what the device has, up to 2
    uint32_t rate = 0;     // 0: the modem's own, or else the device's
    double seconds = 0.0;  // 0: without end
    uint64_t count = 0;    // messages; 0: without end
    std::string record;    // file for what is heard; empty: none
    bool all_channels = false;
    bool hex = false;
    bool json = false;
    receiver_options receiver;
    receive_options transfers;
};

struct check_options {
    std::string input_device, output_device;
    std::string recording;   // instead of devices
    std::string signal_file; // to write, instead of playing
    double volume = 1.0;
    bool json = false;
    sound_band band = default_band(); // of the frames
};

struct inspect_options {
    std::vector<std::string> inputs;
    std::string raw;
    std::string plot; // picture to write
    bool json = false;
    bool plain = false;
    sound_band band = default_band();
};

struct simulate_options {
    std::string input;
    std::string raw;
    std::string output;
    sound_band band = default_band();
    std::vector<std::string> echoes; // MS:GAIN
    std::string noise = "white";
    uint32_t senders = 1; // with that of the recording
    uint64_t seed = 1;
    kosc_link::sound_path path; // but for band, echoes and noise
};

// Registration of the commands that work on sound files alone.
subcommand add_inspect(CLI::App& app);
subcommand add_simulate(CLI::App& app);
subcommand add_info(CLI::App& app);
subcommand add_key(CLI::App& app);

int run_inspect(const inspect_options& options, bool verbose);
int run_simulate(const simulate_options& options);

// Registration of the commands that work on sound devices.
subcommand add_send(CLI::App& app);
subcommand add_listen(CLI::App& app);
subcommand add_devices(CLI::App& app);
subcommand add_check(CLI::App& app);

int run_send(const send_options& options, bool verbose);
int run_listen(const listen_options& options, bool verbose);
int run_devices(bool json, bool verbose);
int run_check(const check_options& options, bool verbose);
int run_encode(const encode_options& options);
int run_decode(const decode_options& options);
int run_info(bool json);
int run_key(const std::string& path);

#endif
