#include <memory>

#include <CLI/CLI.hpp>

#include "commands/band_option.h"
#include "commands/commands.h"
#include "commands/number_in.h"

namespace {

constexpr const char* INSPECT_FOOTER =
    R"(For the recording: sample rate; for each channel the levels in dB against full scale (a full sine has 0) in the
band, their floor and loudest moment, and below; an empty top of the spectrum, noise suppression and clipping.
For each frame that was recognised, decoded or not: where it starts, by the recording's own samples, how well its pilot
was recognised, its signal-to-noise ratio, error vector magnitude and clock drift as the second look measures them, which
of the message's two parts failed its CRC, and whether the second look decodes it. A frame whose beginning is missing
starts before 0. For each message that frames too weak alone give together, from how many it was put together, and how well
they are heard. Then one sentence.
With several recordings, each has its report. With --json the whole is one object on a line, whose "file" is the
recording as it was named, and whose other keys man kosc-inspect lists; levels of silence are -200, what is unknown is null.
Exit code: 0 at least one frame, or a sum of several, decodes, 1 none, 2 wrong use or unreadable recording.)";

constexpr const char* INFO_FOOTER =
    R"(With --json the whole is one object on a line: "version", "message_bytes", "crcs", "sample_rate", "bits",
"frame_samples", "frame_seconds", "symbols", "symbol_samples", "prefix_samples", "layout", "band_low_hz",
"band_high_hz", "subcarriers", "message_bit_rate", "air_bit_rate" and "bands", each with "name", "low_hz", "high_hz" and
"use".)";

} // namespace

subcommand add_info(CLI::App& app)
{
    const auto json = std::make_shared<bool>(false);
    CLI::App* const info = app.add_subcommand("info", "Print version, frame layout, bit rate, and the bands");
    info->add_flag("--json", *json, "print one JSON object");
    info->footer(INFO_FOOTER);
    return {info, [json](bool) { return run_info(*json); }};
}

subcommand add_inspect(CLI::App& app)
{
    const auto options = std::make_shared<inspect_options>();
    CLI::App* const inspect = app.add_subcommand("inspect", "Tell why a recording decodes, or why not");
    inspect->add_option("recording", options->inputs, "any recordings that decode reads; - reads standard input")
        ->required();
    add_band_option(*inspect, options->band);
    inspect->add_option("--raw", options->raw, RAW_HELP);
    inspect->add_flag("--json", options->json, "print one JSON object");
    inspect->add_option("--plot", options->plot, "draw what was found into an .svg or .png file");
    inspect->add_flag("--plain", options->plain, "no second look, and nothing that it measures");
    inspect->footer(INSPECT_FOOTER);
    return {inspect, [options](bool verbose) { return run_inspect(*options, verbose); }};
}

subcommand add_simulate(CLI::App& app)
{
    const auto options = std::make_shared<simulate_options>();
    CLI::App* const simulate = app.add_subcommand("simulate", "Make a bad recording out of a good one");
    simulate->add_option("recording", options->input, "any recording that decode reads")->required();
    simulate->add_option("--raw", options->raw, RAW_HELP);
    simulate->add_option("output", options->output, "sound file to write at 48 kHz, .wav or .flac; - for WAV to a pipe")
        ->required();
    simulate
        ->add_option(
            "--senders", options->senders,
            "how many devices send: all others send \"sender 2\" and so on once, at random times, up to 12 dB fainter")
        ->check(number_in(1.0, 1000.0));
    simulate->add_option("--drift", options->path.drift_ppm, "the sender's clock is fast by so many millionths")
        ->check(number_in(-100000.0, 100000.0));
    simulate->add_option("--echo", options->echoes, "MS:GAIN, an echo so late and so loud; may be repeated")
        ->allow_extra_args(false);
    simulate->add_option("--room", options->path.room_rt60, "seconds in which the room's echoes fall by 60 dB")
        ->check(number_in(0.0, 5.0));
    auto* const snr = simulate->add_option("--snr", options->path.snr_db, "add noise so many dB below the sound");
    snr->check(number_in(-60.0, 120.0));
    simulate
        ->add_option("--noise", options->noise,
                     "white, pink or speech; white counts between 18 and 21 kHz, others whole, and with --band each in "
                     "the band")
        ->check(CLI::IsMember({"white", "pink", "speech"}))
        ->needs(snr)
        ->capture_default_str();
    auto* const band = add_band_option(*simulate, options->band);
    band->description("the band to count in: a name that kosc info lists, or where it begins in Hz")->default_str("");
    simulate->add_option("--lowpass", options->path.low_pass, "remove what lies above so many Hz")
        ->check(number_in(100.0, 24000.0));
    simulate->add_option("--gain", options->path.gain_db, "level of the recording in dB")
        ->check(number_in(-120.0, 120.0));
    simulate->add_option("--clip", options->path.clip, "cut samples to this share of full scale")
        ->check(number_in(0.0, 1.0));
    simulate->add_option("--seed", options->seed, "another number gives other senders, noise and room")
        ->capture_default_str();
    simulate->footer("The steps are applied in this order: senders, drift, echo, room, noise, lowpass, gain, clip.");
    return {simulate, [options, band](bool) {
                options->path.within_band = band->count() != 0;
                return run_simulate(*options);
            }};
}
