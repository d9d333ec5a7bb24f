#include <memory>

#include <CLI/CLI.hpp>

#include "commands.h"

subcommand add_simulate(CLI::App& app)
{
    const auto options = std::make_shared<simulate_options>();
    CLI::App* const simulate = app.add_subcommand("simulate", "Make a bad recording out of a good one");
    simulate->add_option("recording", options->input, "any recording that decode reads")->required();
    simulate->add_option("output", options->output, "sound file to write at 48 kHz, .wav or .flac; - for WAV to a pipe")
        ->required();
    simulate->add_option("--drift", options->drift_ppm, "the sender's clock is fast by so many millionths")
        ->check(CLI::Range(-100000.0, 100000.0));
    simulate->add_option("--echo", options->echoes, "MS:GAIN, an echo so late and so loud; may be repeated")
        ->allow_extra_args(false);
    simulate->add_option("--room", options->room_rt60, "seconds in which the room's echoes fall by 60 dB")
        ->check(CLI::Range(0.0, 5.0));
    simulate->add_option("--snr", options->snr_db, "add noise so many dB below the sound")
        ->check(CLI::Range(-60.0, 120.0));
    simulate
        ->add_option("--noise", options->noise,
                     "white, pink or speech; white counts between 18 and 21 kHz, others whole")
        ->check(CLI::IsMember({"white", "pink", "speech"}))
        ->capture_default_str();
    simulate->add_option("--lowpass", options->low_pass, "remove what lies above so many Hz")
        ->check(CLI::Range(100.0, 24000.0));
    simulate->add_option("--gain", options->gain_db, "level of the recording in dB")->check(CLI::Range(-120.0, 120.0));
    simulate->add_option("--clip", options->clip, "cut samples to this share of full scale")
        ->check(CLI::Range(0.0, 1.0));
    simulate->add_option("--seed", options->seed, "another number gives other noise and another room")
        ->capture_default_str();
    simulate->footer("The steps are applied in this order: drift, echo, room, noise, lowpass, gain, clip.");
    return {simulate, [options](bool) { return run_simulate(*options); }};
}
