// How many frames that overlap are heard: pairs, threes, and devices that send at random; and what frames apart cost.
#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "crowd.h"
#include "curves.h"

namespace {

using namespace kosc_link;
using kosc_link::signal; // not the C library's

constexpr listener LISTENERS[] = {{"plain", KOSC_SECOND_LOOK_OFF, KOSC_CROWD_OFF},
                                  {"second look", KOSC_SECOND_LOOK_ON, KOSC_CROWD_OFF},
                                  {"every peak", KOSC_SECOND_LOOK_ON, KOSC_CROWD_PEAKS},
                                  {"cancelling", KOSC_SECOND_LOOK_ON, KOSC_CROWD_CANCEL}};

struct options {
    std::string what;
    uint32_t trials = 20;
    uint32_t first_listener = 1;
    uint32_t block = 4096;
    uint64_t seed = 1;
    double seconds = 90;
    uint32_t equal_bytes = 0;
    std::vector<surroundings> where = {surroundings::CLEAN, surroundings::ECHOES, surroundings::ROOM};
    std::vector<double> steps = {0, 3, 6, 10, 20};
    std::vector<double> offsets = {0, 100, 1000, 3000, 5760, 10000};
    std::vector<double> loads = {0.25, 0.5, 1.0, 2.0};
    std::vector<double> snrs = {20};
    uint32_t draws = 1;
    uint32_t devices = 30;
    double rt60 = 0.2;
    uint32_t first_subcarrier = kosc::DEFAULT_SUBCARRIER;
    std::string plot_dir;
};

constexpr const char* WHERE_NAMES[] = {"clean", "echoes", "room"};

// Sums over trials; a trial counts where all its senders were delivered.
struct tally {
    std::atomic<uint32_t> all{0};
    std::atomic<uint32_t> delivered{0};
    std::atomic<uint32_t> wrong{0};
    std::atomic<uint32_t> repeated{0};
    std::atomic<uint32_t> tried{0};
    std::atomic<uint32_t> cancelled{0};
    std::atomic<double> milliseconds{0};
};

// Every worker takes the next trial, which depends on its number alone.
void run_overlaps(const overlap& o, const options& wanted, tally* tallies)
{
    std::atomic<uint32_t> next{0};
    const auto work = [&] {
        for (uint32_t t = next++; t < wanted.trials; t = next++) {
            const crowd_recording recording = make_overlap(o, (wanted.seed << 32) + t);
            for (uint32_t i = wanted.first_listener; i < std::size(LISTENERS); ++i) {
                const heard_crowd heard = listen(recording, LISTENERS[i], wanted.block);
                tally& sum = tallies[i];
                sum.all += heard.delivered == o.senders ? 1 : 0;
                sum.delivered += heard.delivered;
                sum.wrong += heard.wrong;
                sum.repeated += heard.repeated;
                sum.tried += heard.counts.tried;
                sum.cancelled += heard.counts.cancelled;
                sum.milliseconds = sum.milliseconds + heard.milliseconds;
            }
        }
    };
    std::vector<std::thread> workers;
    for (unsigned i = 0; i < std::max(1U, std::thread::hardware_concurrency()); ++i) {
        workers.emplace_back(work);
    }
    for (std::thread& worker : workers) {
        worker.join();
    }
}

// A line for every receiver that listens.
std::vector<curve_line> start_lines(const options& wanted)
{
    std::vector<curve_line> lines;
    for (uint32_t i = wanted.first_listener; i < std::size(LISTENERS); ++i) {
        lines.push_back({LISTENERS[i].name, "", {}});
    }
    return lines;
}

bool overlaps(uint32_t senders, const options& wanted)
{
    std::printf(
        "%u senders, %u trials, blocks of %u: trials with all delivered (messages delivered), wrong, repeated\n",
        senders, wanted.trials, wanted.block);
    for (const surroundings where : wanted.where) {
        std::vector<curve_line> lines = start_lines(wanted);
        for (const double snr : wanted.snrs) {
            for (const double step : wanted.steps) {
                for (curve_line& line : lines) {
                    line.points.emplace_back(step, 0.0);
                }
                for (const double offset : wanted.offsets) {
                    overlap o;
                    o.where = where;
                    o.senders = senders;
                    o.offset = static_cast<uint32_t>(offset);
                    o.step_db = step;
                    o.snr_db = snr;
                    o.equal_bytes = wanted.equal_bytes;
                    o.first_subcarrier = wanted.first_subcarrier;
                    tally tallies[std::size(LISTENERS)];
                    run_overlaps(o, wanted, tallies);
                    std::printf("%-6s SNR %2.0f step %2.0f offset %5.0f ", WHERE_NAMES[static_cast<int>(where)], snr,
                                step, offset);
                    for (uint32_t i = wanted.first_listener; i < std::size(LISTENERS); ++i) {
                        const tally& sum = tallies[i];
                        lines[i - wanted.first_listener].points.back().second +=
                            100.0 * sum.all / wanted.trials / wanted.offsets.size();
                        std::printf(" | %s %3u (%3u) %u %u, %.2f tried %.2f cancelled %.1f ms", LISTENERS[i].name,
                                    sum.all.load(), sum.delivered.load(), sum.wrong.load(), sum.repeated.load(),
                                    1.0 * sum.tried / wanted.trials, 1.0 * sum.cancelled / wanted.trials,
                                    sum.milliseconds / wanted.trials);
                    }
                    std::printf("\n");
                    std::fflush(stdout);
                }
            }
        }
        const std::string name = WHERE_NAMES[static_cast<int>(where)];
        if (!wanted.plot_dir.empty() &&
            !draw({wanted.plot_dir + "/crowd-" + name + ".svg", "two frames that overlap: " + name,
                   "level of one over the other, dB", "both delivered, %", "set yrange [0:100]\nset key center right",
                   lines})) {
            return false;
        }
    }
    return true;
}

// Sums; of latencies too, by message.
void add(const heard_crowd& more, heard_crowd* sum)
{
    sum->delivered += more.delivered;
    sum->wrong += more.wrong;
    sum->repeated += more.repeated;
    sum->latency += more.latency * more.delivered;
    sum->worst_latency = std::max(sum->worst_latency, more.worst_latency);
    sum->milliseconds += more.milliseconds;
    sum->counts.tried += more.counts.tried;
    sum->counts.cancelled += more.counts.cancelled;
}

void add(const losses& more, losses* sum)
{
    sum->within_prefix += more.within_prefix;
    sum->no_peak += more.no_peak;
    sum->not_decoded += more.not_decoded;
    sum->overlapped += more.overlapped;
    sum->lost_too += more.lost_too;
}

// Each draw has its own devices, places, levels and times.
bool random_accesses(const options& wanted)
{
    std::vector<curve_line> lines = start_lines(wanted);
    for (const double load : wanted.loads) {
        heard_crowd sums[std::size(LISTENERS)] = {};
        losses lost[std::size(LISTENERS)] = {};
        size_t sent = 0;
        for (uint32_t draw = 0; draw < wanted.draws; ++draw) {
            random_access r;
            r.seconds = wanted.seconds;
            r.load = load;
            r.snr_db = wanted.snrs[0];
            r.devices = wanted.devices;
            r.rt60 = wanted.rt60;
            r.first_subcarrier = wanted.first_subcarrier;
            const uint64_t seed = (wanted.seed + draw) * 1000 + static_cast<uint64_t>(std::lround(100 * load));
            const crowd_recording recording = make_random_access(r, seed);
            sent += recording.sent.size();
            for (uint32_t i = wanted.first_listener; i < std::size(LISTENERS); ++i) {
                const heard_crowd heard = listen(recording, LISTENERS[i], wanted.block);
                add(heard, &sums[i]);
                add(explain_losses(recording, heard), &lost[i]);
            }
        }
        const double seconds = wanted.seconds * wanted.draws;
        for (uint32_t i = wanted.first_listener; i < std::size(LISTENERS); ++i) {
            const heard_crowd& heard = sums[i];
            std::printf("load %.2f, %zu frames in %.0f s, %-11s lost %5.1f %%, wrong %u, repeated %u, tried %u, "
                        "cancelled %u, latency %.0f ms, at most %.0f ms, %.2f ms a second\n",
                        load, sent, seconds, LISTENERS[i].name, 100.0 * (sent - heard.delivered) / sent, heard.wrong,
                        heard.repeated, heard.counts.tried, heard.counts.cancelled,
                        1e3 * heard.latency / std::max(heard.delivered, 1U), 1e3 * heard.worst_latency,
                        heard.milliseconds / seconds);
            const losses& why = lost[i];
            std::printf("    of the lost, %u share their start with another, %u show no peak, %u do not decode; "
                        "%.1f frames lie over each, %.1f of them lost\n",
                        why.within_prefix, why.no_peak, why.not_decoded,
                        1.0 * why.overlapped / std::max<size_t>(sent - heard.delivered, 1),
                        1.0 * why.lost_too / std::max<size_t>(sent - heard.delivered, 1));
            std::fflush(stdout);
            lines[i - wanted.first_listener].points.emplace_back(load, 100.0 * (sent - heard.delivered) / sent);
        }
    }
    return wanted.plot_dir.empty() ||
           draw({wanted.plot_dir + "/crowd.svg", std::to_string(wanted.devices) + " devices that send at random",
                 "frames begun in the time of one", "lost, %", "set yrange [0:100]\nset key top left", lines});
}

// What frames apart cost, all receivers in turns over the same recordings.
void costs(const options& wanted)
{
    for (const surroundings where : wanted.where) {
        for (const double snr : wanted.snrs) {
            heard_crowd sums[std::size(LISTENERS)] = {};
            double seconds = 0;
            for (uint32_t trial = 0; trial < wanted.trials; ++trial) {
                const frames_apart f = {where, 10, snr, wanted.first_subcarrier};
                const crowd_recording recording = make_frames_apart(f, (wanted.seed << 32) + trial);
                seconds += static_cast<double>(recording.pcm.size()) / kosc::SAMPLE_RATE;
                for (uint32_t i = wanted.first_listener; i < std::size(LISTENERS); ++i) {
                    add(listen(recording, LISTENERS[i], wanted.block), &sums[i]);
                }
            }
            std::printf("%-6s SNR %2.0f, %u frames in %.0f s", WHERE_NAMES[static_cast<int>(where)], snr,
                        10 * wanted.trials, seconds);
            for (uint32_t i = wanted.first_listener; i < std::size(LISTENERS); ++i) {
                const heard_crowd& sum = sums[i];
                std::printf(" | %s %u, %u tried, %u cancelled, latency %.2f, at most %.2f ms, %.2f ms a second (%.2f)",
                            LISTENERS[i].name, sum.delivered, sum.counts.tried, sum.counts.cancelled,
                            1e3 * sum.latency / std::max(sum.delivered, 1U), 1e3 * sum.worst_latency,
                            sum.milliseconds / seconds, sum.milliseconds / sums[wanted.first_listener].milliseconds);
            }
            std::printf("\n");
            std::fflush(stdout);
        }
    }
}

std::vector<double> numbers(const std::string& list)
{
    std::vector<double> values;
    for (const char* p = list.c_str(); *p != '\0';) {
        char* end = nullptr;
        values.push_back(std::strtod(p, &end));
        p = *end == ',' ? end + 1 : end;
        if (end == nullptr || (*end != ',' && *end != '\0')) {
            return {};
        }
    }
    return values;
}

bool set(const std::string& name, const std::string& value, options* o)
{
    const std::vector<double> list = numbers(value);
    const double number = list.empty() ? 0 : list[0];
    if (name == "--where") {
        const auto* const found = std::find(std::begin(WHERE_NAMES), std::end(WHERE_NAMES), value);
        if (found == std::end(WHERE_NAMES)) {
            return false;
        }
        o->where = {static_cast<surroundings>(found - std::begin(WHERE_NAMES))};
    } else if (name == "--plots") {
        o->plot_dir = value;
    } else if (name == "--band") {
        ko_soundcommu_band_t found;
        if (ko_soundcommu_find_band(value.c_str(), &found) != 0) {
            return false;
        }
        o->first_subcarrier = found.first_subcarrier;
    } else if (list.empty()) {
        return false;
    } else if (name == "--steps") {
        o->steps = list;
    } else if (name == "--offsets") {
        o->offsets = list;
    } else if (name == "--loads") {
        o->loads = list;
    } else if (name == "--snrs") {
        o->snrs = list;
    } else if (name == "--trials") {
        o->trials = static_cast<uint32_t>(number);
    } else if (name == "--block") {
        o->block = static_cast<uint32_t>(number);
    } else if (name == "--devices") {
        o->devices = static_cast<uint32_t>(number);
    } else if (name == "--rt60") {
        o->rt60 = number;
    } else if (name == "--draws") {
        o->draws = static_cast<uint32_t>(number);
    } else if (name == "--seed") {
        o->seed = static_cast<uint64_t>(number);
    } else if (name == "--seconds") {
        o->seconds = number;
    } else if (name == "--equal") {
        o->equal_bytes = static_cast<uint32_t>(number);
    } else if (name == "--listeners") { // how many, from the last on
        o->first_listener = static_cast<uint32_t>(std::size(LISTENERS) - std::clamp(number, 1.0, 4.0));
    } else {
        return false;
    }
    return o->block > 0 && o->devices > 0 && o->equal_bytes <= kosc::MESSAGE_BYTES;
}

} // namespace

int main(int argc, char** argv)
{
    log_level = 0;
    options o;
    bool understood = argc % 2 == 0;
    o.what = understood ? argv[1] : "";
    for (int i = 2; understood && i < argc; i += 2) {
        understood = set(argv[i], argv[i + 1], &o);
    }
    bool drawn = true;
    if (understood && o.what == "pairs") {
        drawn = overlaps(2, o);
    } else if (understood && o.what == "threes") {
        drawn = overlaps(3, o);
    } else if (understood && o.what == "random") {
        drawn = random_accesses(o);
    } else if (understood && o.what == "cost") {
        costs(o);
    } else {
        std::fprintf(stderr,
                     "usage: kosc_crowd_bench pairs|threes|random|cost [--trials N] [--where clean|echoes|room] "
                     "[--steps DB,...] [--offsets SAMPLES,...] [--snrs DB,...] [--equal BYTES] [--loads G,...] "
                     "[--seconds S] [--draws N] [--devices N] [--rt60 S] [--block SAMPLES] [--band NAME|HZ] [--seed N] "
                     "[--listeners 1..4] [--plots DIR]\n");
        return 2;
    }
    if (!drawn) {
        std::fprintf(stderr, "gnuplot failed\n");
        return 1;
    }
    return 0;
}
