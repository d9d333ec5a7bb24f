#include <algorithm>
#include <chrono>
#include <cmath>
#include <stdexcept>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "audio/audio_file.h"
#include "audio/audio_stream.h"
#include "audio/sound_writer.h"
#include "commands/commands.h"
#include "commands/probe.h"
#include "commands/received_text.h"
#include "commands/stop_request.h"
#include "modem.h"
#include "picture/terminal.h"
#include "power_spectrum.h"
#include "text.h"

using kosc_inspect::SILENCE_DB;
using kosc_inspect::text;

namespace {

using pcm_samples = std::vector<int16_t>;

constexpr const char* FITNESS[] = {"good", "usable", "unfit"};

struct trial {
    pcm_samples recording;
    double lead_seconds = NAN; // from the first sample's way out to the first one's way in; a file does not tell
};

trial record_live(const check_options& options, bool verbose)
{
    constexpr double LONGEST_LATENCY = 2.0;
    const audio_system system(verbose);
    pcm_samples sound = probe_sound(options.band);
    std::transform(sound.begin(), sound.end(), sound.begin(),
                   [&](int16_t sample) { return static_cast<int16_t>(std::lround(sample * options.volume)); });
    input_stream input(system, system.find(options.input_device, direction::INPUT), 1, 0);
    output_stream output(system.find(options.output_device, direction::OUTPUT), sound.size());
    output.write(sound);
    input.start();
    output.start();
    trial done;
    std::vector<pcm_samples> pcm;
    const size_t wanted = sound.size() + static_cast<size_t>(LONGEST_LATENCY * kosc::SAMPLE_RATE);
    while (done.recording.size() < wanted) {
        input.read(pcm);
        done.recording.insert(done.recording.end(), pcm.front().begin(), pcm.front().end());
        if (stop_requested()) {
            throw std::runtime_error("the check was broken off");
        }
    }
    done.lead_seconds = std::chrono::duration<double>(input.started() - output.started()).count();
    return done;
}

pcm_samples read_recording(const std::string& path, const sound_band& band)
{
    constexpr size_t LONGEST = size_t{60} * kosc::SAMPLE_RATE;
    constexpr const char* TOO_LONG = ": a recording of the check lasts a minute at most";
    audio_file file(path, {}, {band});
    return file.read_all(LONGEST * file.channels(), "cannot use " + input_name(path) + TOO_LONG).front();
}

// A level or gain, null where there was nothing but noise.
nlohmann::ordered_json level(double db)
{
    return db > SILENCE_DB ? nlohmann::ordered_json(rounded(db, 10.0)) : nullptr;
}

std::string as_json(const probe_report& report, const probe_verdict& verdict, double latency)
{
    using json = nlohmann::ordered_json;
    json object;
    object["verdict"] = FITNESS[static_cast<int>(verdict.fit)];
    object["cause"] = verdict.cause;
    object["sentence"] = verdict.sentence;
    object["advice"] = verdict.advice;
    object["frames_sent"] = PROBE_FRAMES;
    object["frames_heard"] = report.frames_heard;
    object["frames_second_look"] = report.frames_second_look;
    object["latency_ms"] = std::round(latency * 1000.0); // null when not a number
    object["noise_db"] = level(report.noise_db);
    object["clipped_samples"] = report.clipped_samples;
    object["band"] = name_of(report.band);
    const band_prospect* const best = best_band(report, verdict.fit);
    object["best_band"] = best != nullptr ? json(best->band.name) : nullptr;
    object["bands"] = json::array();
    for (const band_prospect& each : report.prospects) {
        object["bands"].push_back(
            {{"name", each.band.name},
             {"over_noise_db", level(each.over_noise_db)},
             {"spread_db", each.over_noise_db > SILENCE_DB ? json(rounded(each.spread_db, 10.0)) : nullptr},
             {"good", each.good}});
    }
    if (report.sweep_found) {
        object["signal_db"] = level(report.signal_db);
        object["audible_gain_db"] = level(report.audible_gain_db);
        object["second_sweep_gain_db"] = level(report.second_sweep_gain_db);
        object["frames_change_db"] = rounded(report.frames_change_db, 10.0);
        object["hush_db"] = rounded(report.hush_db, 10.0);
        object["stretch_ppm"] = rounded(report.stretch_ppm, 10.0);
        for (size_t i = 0; i < report.gain_db.size(); ++i) {
            object["response"].push_back({{"hz", report.response_low + (static_cast<double>(i) + 0.5) * RESPONSE_STEP},
                                          {"gain_db", level(report.gain_db[i])}});
        }
    }
    return json_line(object);
}

std::string response_lines(const probe_report& report)
{
    constexpr double BAR_DB = 2.0, BARS = 30.0;
    const double highest = *std::max_element(report.gain_db.begin(), report.gain_db.end());
    std::string lines;
    for (size_t i = 0; i < report.gain_db.size(); ++i) {
        const double khz = (report.response_low + (static_cast<double>(i) + 0.5) * RESPONSE_STEP) / 1000.0;
        const double bars = std::clamp(BARS - (highest - report.gain_db[i]) / BAR_DB, 0.0, BARS);
        lines += i == 0 ? "response     " : "             ";
        if (report.gain_db[i] > SILENCE_DB) {
            lines += text("%6.3f kHz %6.1f dB  ", khz, rounded(report.gain_db[i], 10.0)) +
                     std::string(static_cast<size_t>(std::lround(bars)), '#');
        } else {
            lines += text("%6.3f kHz  nothing but noise", khz);
        }
        lines += "\n";
    }
    return lines;
}

std::string as_text(const probe_report& report, const probe_verdict& verdict, double latency)
{
    std::string lines;
    if (report.sweep_found) {
        lines += response_lines(report);
        lines += report.audible_gain_db > SILENCE_DB
                     ? text("audible      %.1f dB from 3 to 14 kHz\n", rounded(report.audible_gain_db, 10.0))
                     : "audible      nothing but noise from 3 to 14 kHz\n";
        lines += text("level        frames %.1f dB, %.1f dB over the noise, from %s kHz\n", report.signal_db,
                      report.signal_db - report.noise_db, kosc_inspect::edges_khz(report.band, " to ").c_str());
    }
    lines += text("noise floor  %.1f dB from %s kHz\n", report.noise_db,
                  kosc_inspect::edges_khz(report.band, " to ").c_str());
    lines += text("clipping     %llu samples\n", static_cast<unsigned long long>(report.clipped_samples));
    if (report.sweep_found) {
        lines += "steadiness   second sweep ";
        lines += report.second_sweep_gain_db > SILENCE_DB ? text("%+.1f dB", rounded(report.second_sweep_gain_db, 10.0))
                 : std::isnan(report.second_sweep_gain_db) ? "in noise"
                                                           : "missing";
        lines += text(", last frame %+.1f dB, room during frames %+.1f dB\n", rounded(report.frames_change_db, 10.0),
                      rounded(-report.hush_db, 10.0));
        lines += text("clocks       %+.0f ppm apart\n", report.stretch_ppm);
    }
    if (!std::isnan(latency)) {
        lines += text("latency      %.0f ms there and back\n", latency * 1000.0);
    }
    lines += text("frames       %u of %u heard, %u of them only in the second look\n", report.frames_heard,
                  PROBE_FRAMES, report.frames_second_look);
    for (const band_prospect& each : report.prospects) {
        lines += text("band         %-16s", each.band.name);
        lines += each.over_noise_db > SILENCE_DB
                     ? text("%.0f dB over the noise, %s\n", each.over_noise_db, each.good ? "good" : "not good")
                     : "nothing but noise\n";
    }
    lines += std::string("verdict      ") + FITNESS[static_cast<int>(verdict.fit)] + ": " + verdict.sentence + "\n";
    lines += "advice       " + verdict.advice + "\n";
    const band_prospect* const best = best_band(report, verdict.fit);
    if (best != nullptr) {
        const std::string name = best->band.name;
        lines += "best band    " + name + ": kosc send --band " + name + ", kosc listen --band " + name + "\n";
    }
    return lines;
}

} // namespace

int run_check(const check_options& options, bool verbose)
{
    if (!options.signal_file.empty()) {
        write_sound(options.signal_file, probe_sound(options.band));
        return EXIT_DONE;
    }
    catch_stop_signals(false);
    const trial done = options.recording.empty() ? record_live(options, verbose)
                                                 : trial{read_recording(options.recording, options.band)};
    const probe_report report = analyse_probe(done.recording, options.band);
    const probe_verdict verdict = judge(report);
    const double latency = report.sweep_found ? done.lead_seconds + report.start_seconds : NAN;
    write_output(options.json ? as_json(report, verdict, latency) : as_text(report, verdict, latency));
    return verdict.fit == fitness::UNFIT ? EXIT_NO_MESSAGE : EXIT_DONE;
}
