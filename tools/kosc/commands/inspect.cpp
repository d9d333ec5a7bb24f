#include <algorithm>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "audio/audio_file.h"
#include "commands/commands.h"
#include "commands/each_recording.h"
#include "commands/received_text.h"
#include "inspector.h"
#include "picture/plot.h"
#include "picture/progress_bar.h"
#include "picture/terminal.h"
#include "plot_recorder.h"
#include "text.h"

using namespace kosc_inspect;

namespace {

constexpr uint32_t MESSAGE_PARTS = 2; // each with a CRC of its own

int64_t file_sample(int64_t sample, const inspection& result)
{
    return std::llround(static_cast<double>(sample) * result.sample_rate / MODEM_RATE);
}

std::string verdict_on(const candidate& c, const inspection& result, bool second_look)
{
    if (c.decoded && !c.second_look_needed) {
        return "decodes at once: " + shown(c.message);
    }
    static_assert(MESSAGE_PARTS == 2);
    constexpr const char* FAILURES[] = {"cannot be read", "the CRC of the first half fails",
                                        "the CRC of the second half fails", "the CRCs of both halves fail"};
    const std::string failure = FAILURES[c.failed_crcs & 3U];
    if (c.by_crowd) {
        return (c.covered ? "another frame covers it" : failure + "; the second look fails too") +
               "; with --crowd it decodes: " + shown(c.message);
    }
    if (c.decoded || !second_look) {
        return failure + (c.decoded ? "; the second look decodes: " + shown(c.message) : "");
    }
    return failure + (c.measured ? "; the second look fails too" : ", as its beginning is not recognised") +
           (c.summed                     ? "; the sum with others decodes"
            : could_be_summed(c, result) ? "; the sum with others fails"
                                         : "");
}

std::string as_text(const frame_sum& sum)
{
    const uint32_t first = std::min(sum.channel, sum.last_channel), last = std::max(sum.channel, sum.last_channel);
    return text("sum        %.6f s  ch %s  SNR %.1f dB  newest frame %.1f dB  drift %+.0f ppm\n",
                static_cast<double>(sum.sample) / MODEM_RATE,
                (std::to_string(first) + (first == last ? "" : " and " + std::to_string(last))).c_str(),
                rounded(sum.from.snr_db, 10.0), rounded(sum.from.newest_snr_db, 10.0),
                rounded(sum.from.drift_ppm, 1.0)) +
           "           " + sources_of(sum.from) + text(", within %.1f s: ", sum.from.seconds) + shown(sum.message) +
           "\n";
}

std::string as_text(const candidate& c, const inspection& result, bool second_look)
{
    const double seconds = static_cast<double>(c.sample) / MODEM_RATE;
    std::string line = text("frame      %.6f s  sample %lld  ch %u  correlation %.2f", seconds,
                            static_cast<long long>(file_sample(c.sample, result)), c.channel, c.correlation);
    if (c.measured) {
        line += text("  SNR %.1f dB  EVM %.0f %%  drift %+.0f ppm", c.quality.snr_db, 100.0 * c.quality.evm,
                     rounded(c.quality.drift_ppm, 1.0));
    }
    line += text("  level %.0f dB\n           ", c.traits.level_db) + verdict_on(c, result, second_look) + "\n";
    if (c.clipped != 0) {
        line += text("           %llu samples are clipped\n", static_cast<unsigned long long>(c.clipped));
    }
    if (c.why != cause::none) {
        line += text("           named cause: %s", name_of(c.why));
        line += c.why == cause::echo && c.traits.echo_delay > 0.0
                    ? text(", strongest %.1f ms late\n", 1000.0 * c.traits.echo_delay / MODEM_RATE)
                    : "\n";
        for (size_t i = 0; c.why == cause::several_senders && i < c.others.size(); ++i) {
            line += text("           lies over the frame at %.6f s\n", static_cast<double>(c.others[i]) / MODEM_RATE);
        }
        line += "           measured: " + evidence_of(c) + "\n";
    }
    return line;
}

std::string as_text(const channel_figures& channel, size_t number, const sound_band& band)
{
    std::string lines = text("channel %zu  %s kHz %.0f dB (floor %.0f, loudest %.0f), below %.0f dB, peak %.3f\n",
                             number, edges_khz(band, "-").c_str(), channel.band_db, channel.floor_db,
                             channel.loudest_db, channel.below_db, channel.peak);
    if (channel.empty_above) {
        lines += text("           the band above %.1f kHz is empty: low-passed or wrong rate\n",
                      *channel.empty_above / 1000.0);
    }
    if (channel.gated) {
        lines += "           noise suppression seems to be at work\n";
    }
    if (channel.clipped != 0) {
        lines += text("           %llu samples are clipped\n", static_cast<unsigned long long>(channel.clipped));
    }
    return lines;
}

std::string as_text(const inspection& result, bool second_look, bool verbose)
{
    std::string report = text("recording  %u Hz, %s, %.3f s\n", result.sample_rate,
                              counted(result.channels.size(), "channel").c_str(), result.seconds);
    for (size_t i = 0; i < result.channels.size(); ++i) {
        report += as_text(result.channels[i], i + 1, result.band);
    }
    for (const candidate& c : result.candidates) {
        report += c.chance && !verbose ? "" : as_text(c, result, second_look);
    }
    for (const frame_sum& sum : result.sums) {
        report += as_text(sum);
    }
    return report + "verdict    " + result.verdict + "\n";
}

nlohmann::ordered_json measured_json(const candidate& c)
{
    const frame_traits& t = c.traits;
    nlohmann::ordered_json object;
    object["pilots"] = rounded(t.pilots, 100);
    object["prefixes"] = rounded(t.prefixes, 100);
    object["range_db"] = rounded(t.range_db, 10);
    object["fall_db"] = rounded(t.fall_db, 10);
    object["swing_db"] = rounded(t.swing_db, 10);
    object["slip_samples"] = t.slip;
    object["repeated_samples"] = t.repeated;
    object["pause_samples"] = t.gap;
    object["jumps"] = t.jumps;
    object["displaced_symbols"] = t.displaced;
    object["uneven_symbols"] = t.uneven_symbols;
    object["second_frame"] = rounded(t.second_sender, 100);
    object["second_frame_ms"] = rounded(1000.0 * t.second_delay / MODEM_RATE, 10);
    object["missing_above_hz"] = rounded_or_null(t.missing_above, 1);
    object["before_db"] = rounded(c.around.before_db, 10);
    object["after_db"] = rounded(c.around.after_db, 10);
    return object;
}

nlohmann::ordered_json as_json(const candidate& c, const inspection& result, bool second_look)
{
    const auto measured = [&](double value, double steps) {
        return rounded_or_null(c.measured ? std::optional(value) : std::nullopt, steps);
    };
    nlohmann::ordered_json object;
    object["time"] = rounded(static_cast<double>(c.sample) / MODEM_RATE, 1e6);
    object["sample"] = file_sample(c.sample, result);
    object["channel"] = c.channel;
    object["correlation"] = rounded(c.correlation, 1000.0);
    object["level_db"] = rounded(c.traits.level_db, 10.0);
    object["snr_db"] = measured(c.quality.snr_db, 10.0);
    object["evm"] = measured(c.quality.evm, 1000.0);
    object["drift_ppm"] = measured(c.quality.drift_ppm, 1.0);
    object["decoded"] = c.decoded;
    object["failed_parts"] = nlohmann::ordered_json::array();
    for (uint32_t i = 0; i < MESSAGE_PARTS; ++i) {
        if ((c.failed_crcs >> i & 1U) != 0) {
            object["failed_parts"].push_back(i + 1);
        }
    }
    object["second_look"] = !second_look                         ? "off"
                            : c.decoded && !c.second_look_needed ? "not needed"
                            : c.decoded                          ? "decodes"
                                                                 : "fails";
    object["sum"] = !second_look || c.decoded    ? nullptr
                    : c.summed                   ? nlohmann::ordered_json("decodes")
                    : could_be_summed(c, result) ? nlohmann::ordered_json("fails")
                                                 : nullptr;
    object["crowd"] = c.by_crowd ? nlohmann::ordered_json("decodes") : nullptr;
    object["lies_over"] = nlohmann::ordered_json::array();
    for (size_t i = 0; c.why == cause::several_senders && i < c.others.size(); ++i) {
        object["lies_over"].push_back(file_sample(c.others[i], result));
    }
    object["clipped_samples"] = c.clipped;
    object["echo"] = rounded(c.traits.echo, 1000.0);
    object["echo_ms"] = rounded(1000.0 * c.traits.echo_delay / MODEM_RATE, 100.0);
    object["measured"] = measured_json(c);
    object["chance"] = c.chance;
    object["cause"] = name_of(c.why);
    add_bytes(object, is_read(c) ? std::optional(c.message) : std::nullopt);
    return object;
}

nlohmann::ordered_json as_json(const channel_figures& channel)
{
    nlohmann::ordered_json object;
    object["band_db"] = rounded(channel.band_db, 10.0);
    object["floor_db"] = rounded(channel.floor_db, 10.0);
    object["loudest_db"] = rounded(channel.loudest_db, 10.0);
    object["below_db"] = rounded(channel.below_db, 10.0);
    object["peak"] = rounded(channel.peak, 1e5);
    object["empty_above_hz"] = rounded_or_null(channel.empty_above, 1.0);
    object["noise_suppression"] = channel.gated;
    object["tone_hz"] = rounded_or_null(channel.tone, 1.0);
    object["clipped_samples"] = channel.clipped;
    return object;
}

nlohmann::ordered_json as_json(const frame_sum& sum, const inspection& result)
{
    nlohmann::ordered_json object;
    object["time"] = rounded(static_cast<double>(sum.sample) / MODEM_RATE, 1e6);
    object["sample"] = file_sample(sum.sample, result);
    object["channel"] = sum.channel;
    object.update(as_json(sum.from));
    object["newest_snr_db"] = rounded(sum.from.newest_snr_db, 10.0);
    object["drift_ppm"] = rounded(sum.from.drift_ppm, 1.0);
    add_bytes(object, sum.message);
    return object;
}

std::string as_json(const std::string& path, const inspection& result, bool second_look, bool verbose)
{
    nlohmann::ordered_json object;
    object["file"] = path;
    object["sample_rate"] = result.sample_rate;
    object["seconds"] = rounded(result.seconds, 1000.0);
    object["band"] = name_of(result.band);
    object["channels"] = nlohmann::ordered_json::array();
    for (const channel_figures& channel : result.channels) {
        object["channels"].push_back(as_json(channel));
    }
    object["frames"] = nlohmann::ordered_json::array();
    for (const candidate& c : result.candidates) {
        if (!c.chance || verbose) {
            object["frames"].push_back(as_json(c, result, second_look));
        }
    }
    object["sums"] = nlohmann::ordered_json::array();
    for (const frame_sum& sum : result.sums) {
        object["sums"].push_back(as_json(sum, result));
    }
    object["decodes_at_rate"] = result.reading ? nlohmann::ordered_json(result.reading->rate) : nullptr;
    object["cause"] = name_of(result.why);
    object["verdict"] = result.verdict;
    return json_line(object);
}

exit_code inspect_one(const std::string& path, const inspect_options& options, bool verbose)
{
    audio_file file(path, options.raw, {options.band});
    inspector analysis(file.sample_rate(), file.channels(), {options.band, !options.plain, !options.plot.empty()});
    std::unique_ptr<plot_recorder> recorder;
    if (!options.plot.empty()) {
        recorder = std::make_unique<plot_recorder>(file.sample_rate(), file.channels(), options.band);
    }
    file.observe([&](const float* samples, size_t frames) {
        analysis.process_raw(samples, frames);
        if (recorder) {
            recorder->process_raw(samples, frames);
        }
    });
    progress_bar progress(!verbose, file.seconds());
    uint64_t samples = 0;
    std::vector<std::vector<int16_t>> pcm;
    while (file.read(pcm)) {
        for (uint32_t c = 0; c < file.channels(); ++c) {
            analysis.process(c, pcm[c].data(), pcm[c].size());
            if (recorder) {
                recorder->process(c, pcm[c].data(), pcm[c].size());
            }
        }
        samples += pcm.front().size();
        progress.update(static_cast<double>(samples) / kosc::SAMPLE_RATE);
    }
    progress.clear();
    const inspection result = analysis.finish();
    const std::string heading = options.inputs.size() > 1 ? "file       " + path + "\n" : "";
    write_output(options.json ? as_json(path, result, !options.plain, verbose)
                              : heading + as_text(result, !options.plain, verbose));
    if (recorder) {
        draw(options.plot, path, result, *recorder);
    }
    file.check_complete();
    return !result.sums.empty() || std::any_of(result.candidates.begin(), result.candidates.end(), is_read)
               ? EXIT_DONE
               : EXIT_NO_MESSAGE;
}

} // namespace

int run_inspect(const inspect_options& options, bool verbose)
{
    if (!options.plot.empty()) {
        check_picture_name(options.plot);
        if (options.inputs.size() > 1) {
            throw std::runtime_error("--plot draws one recording");
        }
    }
    return for_each_recording(options.inputs,
                              [&](const std::string& path) { return inspect_one(path, options, verbose); });
}
