#include <memory>

#include <CLI/CLI.hpp>

#include "commands/band_option.h"
#include "commands/commands.h"
#include "commands/number_in.h"
#include "commands/receiver_options.h"
#include "commands/transfer_options.h"

namespace {

constexpr const char* SEND_FOOTER =
    R"(Each message is played as one frame, and then shown as "sent Hello". A text of - stands for standard input, of which
each line is a message, sent as it comes; empty lines are skipped. A line that is no message is named by its number: of a
file before anything is sent, of a pipe when it comes. A device is named by its index or a part of its name, as kosc
devices shows them. Ctrl-C ends at once.
A text that does not fit into the 28 bytes of one message, and any --file, is sent as a transfer: as many messages as its
bytes need at 20 each, half as many again and four for each round, of which any sufficient number gives it back. On a
terminal a line shows how far it is. With several bands the messages of a transfer are dealt over them and sound at once,
so that it takes a sixth of the time with six; a single message sounds in all of them. Without a key anybody hears what
is sent, and may send in your name.
Exit code: 0 everything was sent; 2 wrong use, no such device, or the device was lost; 130 Ctrl-C.)";

constexpr const char* LISTEN_FOOTER =
    R"(Each message is a line as soon as it is heard: the local time at which its frame began, its channel, counted from 1,
and the message, as text if it is UTF-8 without control characters (trailing zero bytes dropped), else as 56 hex digits,
and "[second look]" if it was only decoded there:
    14:03:22.120  ch 1  Hello
With several bands, the message's own stands before it. With --combine, a message that no frame gave alone ends in
"[put together from 4 frames, 2 microphones, SNR 0.4 dB]"; whoever sends should repeat for a second or more.
What several channels hear within 20 ms is one message; its line is that of the channel with the highest signal-to-noise
ratio, or with --plain the highest correlation. --all-channels prints a line for each, and --json an object:
    {"time":"2026-03-01T13:03:22.120Z","channel":1,"band":"near-ultrasonic","text":"Hello","hex":"48656c6c6f00...",
    "correlation":0.98,"snr_db":18.3,"drift_ppm":12.0,"second_look":false}
"time" is UTC; the other members are those of kosc decode --json.
A text or file sent as a transfer is one message, when it is whole. Of a file the line tells name and size, and with
--save where it was saved: under the last part of its name, never over another file unless --force. On a terminal a line
shows how far a transfer is. With a key only what is sealed is taken, once each, and not if the time of the seal is too
far from this clock.
On a terminal a line below the messages shows the spectrum around the band, the band's level in the last tenth of a
second, its noise floor and last peak, in dB below full scale, as far as they fit, or of several bands the whole spectrum
and the level of each; elsewhere a line on standard error tells what is listened to. Lost samples are reported there
too. Ctrl-C ends, and what was heard until then is printed.
Exit code: 0 at least one message; 1 none; 2 wrong use, no such device, or the device was lost; 130 Ctrl-C.)";

constexpr const char* DEVICES_FOOTER =
    R"(For each device: its index and name, the sound system that it belongs to, its channels, and which of the rates 8000,
16000, 22050, 32000, 44100, 48000, 96000 and 192000 Hz it takes. With --json each device is an object on a line.
Exit code: 0 at least one device, 1 none, 2 the sound system does not start.)";

constexpr const char* CHECK_FOOTER =
    R"(Plays a sweep from 0.15 to 22.5 kHz, six frames and the sweep again, eight seconds in all, records them meanwhile,
and tells: the response around the band, noise floor, clipping, whether the path turns the sound down while it lasts,
whether samples get lost, the latency there and back (with the buffers of this command), how many frames were heard,
a verdict with one piece of advice, how each named band would stand out of the noise, and which is best: the highest that
is good. Levels are in dB against a full-scale sine wave, gains over what was played.
Without devices: --write-signal leaves the sound in a file, --recording reads what another device recorded of it; of a
recording with several channels, the first is used. With --json the result is one object on a line.
Exit code: 0 the path is good or usable, 1 unfit, 2 wrong use, no such device, or the device was lost.)";

} // namespace

subcommand add_send(CLI::App& app)
{
    const auto options = std::make_shared<send_options>();
    CLI::App* const send = app.add_subcommand("send", "Play messages on a sound device");
    auto* const texts = send->add_option("text", options->texts, "UTF-8 texts");
    auto* const hex = send->add_option("--hex", options->hex, "a message's bytes as hex digits, up to 28 bytes");
    send->add_option("--file", options->file, "a file, which is sent with its name; - reads standard input")
        ->excludes(hex->excludes(texts))
        ->excludes(texts);
    constexpr uint32_t MOST = 1000000, LONGEST_GAP_MS = 60000, MOST_ROUNDS = 1000;
    send->add_option("--repeat", options->repeat, "times that each message, or all rounds of a transfer, are sent")
        ->check(CLI::Range(1U, MOST))
        ->capture_default_str();
    send->add_option("--gap", options->gap_ms,
                     "milliseconds of silence behind each frame; else 100, and 0 in transfers")
        ->check(CLI::Range(0U, LONGEST_GAP_MS));
    send->add_option("--rounds", options->rounds,
                     "rounds of a transfer; one makes up for a third of lost messages; 0 goes on until Ctrl-C")
        ->check(CLI::Range(0U, MOST_ROUNDS))
        ->capture_default_str();
    add_sending_bands_option(*send, options->bands);
    add_key_options(*send, options->key);
    send->add_option("--device", options->device, "output device, by index or part of its name");
    send->add_option("--volume", options->volume, "0 to 1, of the loudness that kosc encode has")
        ->check(number_in(0.0, 1.0))
        ->capture_default_str();
    send->footer(SEND_FOOTER);
    return {send, [options](bool verbose) { return run_send(*options, verbose); }};
}

subcommand add_listen(CLI::App& app)
{
    const auto options = std::make_shared<listen_options>();
    CLI::App* const listen = app.add_subcommand("listen", "Print the messages that a sound device hears");
    listen->add_option("--device", options->device, "input device, by index or part of its name");
    add_bands_option(*listen, options->bands);
    constexpr uint32_t MOST_CHANNELS = 8;
    listen->add_option("--channels", options->channels, "channels to listen to; else up to 2, as the device has")
        ->check(CLI::Range(1U, MOST_CHANNELS));
    constexpr uint32_t LEAST_RATE = 8000, HIGHEST_RATE = 384000;
    listen->add_option("--rate", options->rate, "the device's rate in Hz; else 48000, or what the device has")
        ->check(CLI::Range(LEAST_RATE, HIGHEST_RATE));
    constexpr double LEAST_SECONDS = 0.001, MOST_SECONDS = 1e9;
    listen->add_option("--for", options->seconds, "seconds to listen; else until Ctrl-C")
        ->check(number_in(LEAST_SECONDS, MOST_SECONDS));
    listen->add_option("--count", options->count, "messages after which to end; else until Ctrl-C")
        ->check(CLI::PositiveNumber);
    listen->add_option("--record", options->record, "a .wav or .flac file for the sound that is heard");
    listen->add_flag("--all-channels", options->all_channels, "print a line for every channel that hears a message");
    auto* const hex = listen->add_flag("--hex", options->hex, "print messages as hex digits");
    listen->add_flag("--json", options->json, "print one JSON object a line for every channel")->excludes(hex);
    add_receiver_options(*listen, options->receiver);
    constexpr double USUAL_WINDOW = 3600.0;
    options->transfers.window = USUAL_WINDOW;
    add_receive_options(*listen, options->transfers);
    listen->footer(LISTEN_FOOTER);
    return {listen, [options](bool verbose) { return run_listen(*options, verbose); }};
}

subcommand add_devices(CLI::App& app)
{
    const auto json = std::make_shared<bool>(false);
    CLI::App* const devices = app.add_subcommand("devices", "List the sound devices");
    devices->add_flag("--json", *json, "print one JSON object a line");
    devices->footer(DEVICES_FOOTER);
    return {devices, [json](bool verbose) { return run_devices(*json, verbose); }};
}

subcommand add_check(CLI::App& app)
{
    const auto options = std::make_shared<check_options>();
    CLI::App* const check = app.add_subcommand("check", "Try how well a loudspeaker and a microphone fit the modem");
    check->add_option("--input", options->input_device, "input device, by index or part of its name");
    check->add_option("--output", options->output_device, "output device, likewise");
    add_band_option(*check, options->band);
    check->add_option("--volume", options->volume, "0 to 1")->check(number_in(0.0, 1.0))->capture_default_str();
    auto* const recording = check->add_option("--recording", options->recording, "judge a recording; - standard input");
    check
        ->add_option("--write-signal", options->signal_file,
                     "write the sound to a .wav or .flac file instead of playing it; - standard output")
        ->excludes(recording);
    check->add_flag("--json", options->json, "print one JSON object");
    check->footer(CHECK_FOOTER);
    return {check, [options](bool verbose) { return run_check(*options, verbose); }};
}
