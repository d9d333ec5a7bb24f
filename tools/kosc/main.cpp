#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#endif

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <exception>
#include <memory>
#include <numeric>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>

#include "commands/band_option.h"
#include "commands/commands.h"
#include "commands/receiver_options.h"
#include "commands/stop_request.h"
#include "commands/transfer_options.h"
#include "kosc/kosc.h"
#include "picture/terminal.h"

namespace {

constexpr const char* DECODE_FOOTER =
    R"(Each message is a line: where its frame starts in the recording, its channel, counted from 1, and the message, as
text if it is UTF-8 without control characters (trailing zero bytes dropped), else as 56 hex digits:
    0.312 s  ch 1  Hello
With several bands, the message's own stands before it. Bands that the recording's rate has no room for are left out.
A frame whose beginning is missing starts before 0. With several recordings, each line begins with the file's name.
Frames that do not decode at once get a second look; a message that needed it ends in "  [second look]". One that no frame
gave alone, but with --combine the sum of several, ends in what it was put together from, and in JSON has "combined"
instead of "correlation":
    1.204 s  ch 2  Hello  [put together from 4 frames, 2 microphones, SNR 0.4 dB]
A text or file sent as a transfer is one message, at the place of the one that made it whole. Of a file the line tells
name and size, and with --save where it was saved: under the last part of its name, never over another file unless
--force. Transfers that are not whole are told at the end.
With --json the line is an object. "sample" counts at the recording's own rate, "text" is null when the message is no
such text, "hex" has all 28 bytes, "correlation" is how well the start of the frame was recognised, up to 1; the
signal-to-noise ratio and the sender's clock drift are measured by the second look, and missing with --plain:
    {"file":"a.wav","time":0.312,"sample":14976,"channel":1,"band":"near-ultrasonic","text":"Hello",
    "hex":"48656c6c6f00...","correlation":0.98,"snr_db":18.3,"drift_ppm":12.0,"second_look":false}
and of a transfer, which is not whole when "held" is less than "messages":
    {"file":"a.wav","time":4.1,"sample":196800,"channel":1,"band":"near-ultrasonic","text":null,"transfer":{"id":57803,
    "messages":12,"held":12,"kind":"file","bytes":210,"sealed":false,"name":"a.txt","saved":"in/a.txt"}}
Exit code: 0 at least one message, 1 none, 2 wrong use or unreadable recording.)";

constexpr const char* ENCODE_FOOTER =
    R"(A text or file that does not fit into the 28 bytes of one message is sent as a transfer: as many messages as its bytes
need at 20 each, half as many again and four for each round, of which any sufficient number gives it back. Files go with
their names. With several bands the messages of a transfer are dealt over them and sound at once, so that it takes a
sixth of the time with six; a single message sounds in all of them. Without a key anybody hears what is sent, and may
send in your name.
Exit code: 0 the file is written, 2 wrong use, or it cannot be written.)";

subcommand add_encode(CLI::App& app)
{
    const auto kept = std::make_shared<encode_options>();
    encode_options& options = *kept;
    CLI::App* const encode = app.add_subcommand("encode", "Turn a message into a sound file");
    auto* const text = encode->add_option("text", options.text, "UTF-8 text; - reads it from standard input");
    auto* const hex = encode->add_option("--hex", options.hex, "the message's bytes as hex digits, up to 28 bytes");
    auto* const file =
        encode
            ->add_option("--file", options.file,
                         "a file; one of up to 28 bytes is the message itself, without a line end at its end")
            ->excludes(text)
            ->excludes(hex->excludes(text));
    encode->add_flag("--as-file", options.as_file, "send a file of up to 28 bytes as a file too, with its name")
        ->needs(file);
    encode
        ->add_option("-o,--output", options.output,
                     "sound file to write, .wav or .flac; - writes WAV to standard output")
        ->required();
    add_sending_bands_option(*encode, options.bands);
    constexpr uint32_t LONGEST_PAD_MS = 60000, MOST_ROUNDS = 1000;
    encode->add_option("--pad", options.pad_ms, "milliseconds of silence before and after the frame")
        ->check(CLI::Range(0U, LONGEST_PAD_MS))
        ->capture_default_str();
    encode->add_option("--gap", options.gap_ms, "milliseconds of silence between the frames of a transfer")
        ->check(CLI::Range(0U, LONGEST_PAD_MS))
        ->capture_default_str();
    encode->add_option("--rounds", options.rounds, "rounds of a transfer; one makes up for a third of lost messages")
        ->check(CLI::Range(1U, MOST_ROUNDS))
        ->capture_default_str();
    add_key_options(*encode, options.key);
    encode->footer(ENCODE_FOOTER);
    return {encode, [kept](bool) { return run_encode(*kept); }};
}

subcommand add_decode(CLI::App& app)
{
    const auto kept = std::make_shared<decode_options>();
    decode_options& options = *kept;
    CLI::App* const decode = app.add_subcommand("decode", "Print the messages that are heard in a recording");
    decode
        ->add_option("recording", options.inputs,
                     "WAV, FLAC, OGG, Opus, MP3, AIFF, AU, CAF or W64 of 1 to 8 channels; - reads standard input")
        ->required();
    decode->add_option("--raw", options.raw, RAW_HELP);
    add_bands_option(*decode, options.bands);
    decode->add_flag("--hex", options.hex, "print messages as hex digits");
    decode->add_flag("--json", options.json, "print one JSON object a line");
    add_receiver_options(*decode, options.receiver);
    add_receive_options(*decode, options.transfers);
    decode->add_flag("-q,--quiet", options.quiet, "print nothing; the exit code tells");
    decode->footer(DECODE_FOOTER);
    return {decode, [kept](bool verbose) {
                kept->verbose = verbose;
                return run_decode(*kept);
            }};
}

// The library would log to standard output, between the messages.
void set_up_log(bool verbose)
{
    soundcomm_set_log_callback([](const char* line) { std::fputs(line, stderr); });
    soundcomm_config_log_time(0);
    soundcomm_set_log_level(verbose ? KOSC_LEVEL_DEBUG : 0);
}

// How many letters must be put in, left out or replaced to make one word of another.
// Source: Wagner and Fischer 1974, "The string-to-string correction problem".
size_t distance(const std::string& a, const std::string& b)
{
    std::vector<size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 0; i < a.size(); ++i) {
        size_t diagonal = std::exchange(row[0], i + 1);
        for (size_t k = 0; k < b.size(); ++k) {
            const size_t replaced = diagonal + (a[i] == b[k] ? 0 : 1);
            diagonal = std::exchange(row[k + 1], std::min({replaced, row[k] + 1, row[k + 1] + 1}));
        }
    }
    return row.back();
}

const subcommand* find_command(const std::vector<subcommand>& subcommands, const std::string& name)
{
    const auto found = std::find_if(subcommands.begin(), subcommands.end(),
                                    [&](const subcommand& each) { return each.parser->get_name() == name; });
    return found == subcommands.end() ? nullptr : &*found;
}

std::runtime_error no_such_command(const std::vector<subcommand>& subcommands, const std::string& name)
{
    const auto nearest =
        std::min_element(subcommands.begin(), subcommands.end(), [&](const subcommand& a, const subcommand& b) {
            return distance(name, a.parser->get_name()) < distance(name, b.parser->get_name());
        });
    return std::runtime_error("there is no command '" + name + "', the nearest is " + nearest->parser->get_name() +
                              "; see kosc --help");
}

// The arguments, where `help`, `help COMMAND` and `version` stand as the options that they mean.
std::vector<std::string> arguments_of(int argc, char** argv)
{
    std::vector<std::string> arguments(argv + std::min(argc, 1), argv + argc);
    if (!arguments.empty() && arguments[0] == "version") {
        arguments[0] = "--version";
    } else if (!arguments.empty() && arguments[0] == "help") {
        arguments[0] = "--help";
        if (arguments.size() > 1) {
            std::swap(arguments[0], arguments[1]);
        }
    }
    return arguments;
}

int run(int argc, char** argv)
{
    CLI::App app("Sends short messages as sound, between 18 and 21 kHz or in another band, and hears them.", "kosc");
    app.allow_windows_style_options(false); // which every subcommand inherits: a path may begin with a slash
#ifdef _WIN32                               // works on files alone there, and without keys
    const std::vector<subcommand> subcommands{add_encode(app), add_decode(app), add_inspect(app), add_simulate(app),
                                              add_info(app)};
#else
    const std::vector<subcommand> subcommands{add_encode(app),  add_decode(app), add_send(app),    add_listen(app),
                                              add_devices(app), add_check(app),  add_inspect(app), add_simulate(app),
                                              add_info(app),    add_key(app)};
#endif
    app.set_version_flag("--version", KOSC_VERSION);
    app.require_subcommand(1);
    app.footer("kosc help and kosc help COMMAND print the same as --help, kosc version the same as --version.");
    bool verbose = false;
    for (const subcommand& each : subcommands) {
        each.parser->add_flag("-v,--verbose", verbose, "print the library's log on standard error");
    }
    std::vector<std::string> arguments = arguments_of(argc, argv);
    const std::string name = arguments.empty() ? "" : arguments[0];
    const subcommand* const given = find_command(subcommands, name);
    if (given == nullptr && !name.empty() && name[0] != '-') {
        throw no_such_command(subcommands, name);
    }
    try {
        std::reverse(arguments.begin(), arguments.end()); // as the parser wants them
        app.parse(arguments);
    } catch (const CLI::Success& help) {
        std::ostringstream text;
        app.exit(help, text, text);
        write_output(text.str());
        return 0;
    } catch (const CLI::ParseError& error) {
        throw std::runtime_error(std::string(error.what()) + "; see kosc " + (given != nullptr ? name + " " : "") +
                                 "--help");
    }
    set_up_log(verbose);
    const auto parsed = std::find_if(subcommands.begin(), subcommands.end(),
                                     [](const subcommand& each) { return each.parser->parsed(); });
    return parsed->run(verbose);
}

} // namespace

int main(int argc, char** argv)
{
#ifdef _WIN32
    _setmode(_fileno(stdin), _O_BINARY); // texts and files are read as they are
#else
    std::signal(SIGPIPE, SIG_IGN); // so that what must be cleaned up is, first
#endif
    try {
        return run_stoppable([&] { return run(argc, argv); });
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kosc: %s\n", error.what());
    }
    return EXIT_FAILED;
}
