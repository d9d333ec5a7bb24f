// Frame error rate against signal-to-noise ratio over named channels, default receiver and second look side by side.
#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <string>
#include <thread>

#include <nlohmann/json.hpp>

#include "curves.h"
#include "link.h"
#include "noises.h"

namespace {

using namespace kosc_link;
using kosc_link::signal; // not the C library's

struct options {
    uint32_t frames = 400;
    double step = 0.5;
    uint64_t seed = 1;
    std::string json_path;
    std::string plot_dir;
    std::string speech_path;
    std::vector<ko_soundcommu_band_t> bands;
    std::vector<std::string> channels;
};

constexpr double MUSIC_SECONDS = 120;

struct point {
    double snr_db;
    std::atomic<uint32_t> at_once{0};
    std::atomic<uint32_t> decoded{0};
    std::atomic<uint32_t> wrong{0};
    explicit point(double snr) : snr_db(snr) {}
};

using curve = std::vector<std::unique_ptr<point>>;

struct band_curve {
    ko_soundcommu_band_t where;
    curve points;
};

// Every worker takes the next frame; what a frame is like depends on its number alone, so the counts do not depend on
// the number of workers.
void run_channel(const link_channel& channel, const options& o, const sounds& others, band_curve* result)
{
    std::atomic<uint32_t> next{0};
    const auto work = [&] {
        link_modem modem{result->where.first_subcarrier, &others};
        for (uint32_t f = next++; f < o.frames; f = next++) {
            const signal clean = modem.transmit(channel, (o.seed << 32) + f);
            for (const auto& p : result->points) {
                const outcome came = modem.receive(channel, clean, p->snr_db);
                p->at_once += came.decoded_at_once ? 1 : 0;
                p->decoded += came.decoded ? 1 : 0;
                p->wrong += came.wrong ? 1 : 0;
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

// Where the error rate falls through one in ten, by linear interpolation of its logarithm; NaN when it does not.
template <typename Count> double ten_percent_db(const curve& points, uint32_t frames, Count count)
{
    // Half an error stands for none, whose logarithm there is not.
    const auto errors = [&](const point& p) { return std::max(0.5, 1.0 * frames - count(p)) / frames; };
    for (size_t i = 1; i < points.size(); ++i) {
        const double before = errors(*points[i - 1]);
        const double after = errors(*points[i]);
        if (before > 0.1 && after <= 0.1) {
            const double share = std::log(before / 0.1) / std::log(before / after);
            return points[i - 1]->snr_db + share * (points[i]->snr_db - points[i - 1]->snr_db);
        }
    }
    return std::nan("");
}

double default_db(const curve& points, uint32_t frames)
{
    return ten_percent_db(points, frames, [](const point& p) { return p.at_once.load(); });
}

double second_look_db(const curve& points, uint32_t frames)
{
    return ten_percent_db(points, frames, [](const point& p) { return p.decoded.load(); });
}

std::string decibel(double db)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.2f dB", db);
    return std::isnan(db) ? "not reached" : text;
}

// The band's name, or where it begins.
std::string name_of(const ko_soundcommu_band_t& where)
{
    return *where.name != '\0' ? where.name : std::to_string(std::lround(where.low_hz)) + " Hz";
}

void print(const link_channel& channel, const options& o, const band_curve& result)
{
    const curve& points = result.points;
    std::printf("%s (%s), %s, %u frames a point\n", channel.name.c_str(), channel.title.c_str(),
                name_of(result.where).c_str(), o.frames);
    std::printf("  SNR dB   default errors   with second look   wrong\n");
    for (const auto& p : points) {
        const uint32_t failed = o.frames - p->at_once;
        const uint32_t lost = o.frames - p->decoded;
        std::printf("  %6.2f   %5u  %7.4f   %5u  %7.4f     %5u\n", p->snr_db, failed,
                    static_cast<double>(failed) / o.frames, lost, static_cast<double>(lost) / o.frames,
                    p->wrong.load());
    }
    std::printf("  10 %% frame errors: default %s, second look %s\n", decibel(default_db(points, o.frames)).c_str(),
                decibel(second_look_db(points, o.frames)).c_str());
    std::fflush(stdout);
}

nlohmann::json to_json(const link_channel& channel, const options& o, const band_curve& result)
{
    const curve& points = result.points;
    nlohmann::json rows = nlohmann::json::array();
    for (const auto& p : points) {
        rows.push_back({{"snr_db", p->snr_db},
                        {"default_decoded", p->at_once.load()},
                        {"second_look_decoded", p->decoded.load()},
                        {"wrong", p->wrong.load()}});
    }
    const auto level = [](double db) { return std::isnan(db) ? nlohmann::json() : nlohmann::json(db); };
    return {{"channel", channel.name},
            {"title", channel.title},
            {"band", name_of(result.where)},
            {"frames", o.frames},
            {"seed", o.seed},
            {"default_10_percent_db", level(default_db(points, o.frames))},
            {"second_look_10_percent_db", level(second_look_db(points, o.frames))},
            {"points", rows}};
}

// What the ratio of a channel compares, as the title of an axis.
std::string ratio_of(const link_channel& channel, const std::vector<band_curve>& results)
{
    if (channel.sound != noise::WHITE) {
        return "frame over all of the " + channel.title + ", dB";
    }
    char text[64];
    std::snprintf(text, sizeof text, "SNR in %.1f-%.2f kHz, dB", results[0].where.low_hz / 1000,
                  results[0].where.high_hz / 1000);
    return results.size() == 1 ? text : "SNR in the band, dB";
}

curve_line error_line(const curve& points, uint32_t frames, bool second_look)
{
    curve_line line;
    for (const auto& p : points) {
        const uint32_t errors = frames - (second_look ? p->decoded : p->at_once);
        line.points.emplace_back(p->snr_db, errors == 0 ? std::nan("") : static_cast<double>(errors) / frames);
    }
    return line;
}

bool plot(const link_channel& channel, const options& o, const std::vector<band_curve>& results)
{
    const bool one = results.size() == 1;
    curve_plot picture = {o.plot_dir + "/" + (one ? "" : "bands-") + channel.name + ".svg",
                          channel.title,
                          ratio_of(channel, results),
                          "frame error rate",
                          "set logscale y\nset yrange [" + std::to_string(0.5 / o.frames) +
                              ":1.2]\nset key bottom left",
                          {}};
    for (size_t i = 0; i < results.size(); ++i) {
        const std::string colour = one ? "" : " lc " + std::to_string(i + 1);
        for (const bool second_look : {false, true}) {
            picture.lines.push_back(error_line(results[i].points, o.frames, second_look));
            curve_line& line = picture.lines.back();
            line.style = one || second_look ? colour : " dt 2" + colour;
            line.title = !one          ? (second_look ? name_of(results[i].where) : "")
                         : second_look ? "second look"
                                       : "default";
        }
    }
    return draw(picture);
}

int usage()
{
    std::fprintf(stderr, "usage: kosc_link_bench [--frames N] [--step DB] [--seed N] [--json FILE] [--plots DIR] "
                         "[--band NAME|HZ]... [--speech WAV] [channel ...]\nchannels:");
    for (const link_channel& channel : link_channels()) {
        std::fprintf(stderr, " %s", channel.name.c_str());
    }
    std::fprintf(stderr, "\n");
    return 2;
}

bool parse(const std::vector<std::string>& words, options* o)
{
    for (size_t i = 0; i < words.size(); ++i) {
        if (words[i].rfind("--", 0) != 0) {
            o->channels.push_back(words[i]);
            continue;
        }
        if (i + 1 == words.size()) {
            return false;
        }
        const std::string& value = words[i + 1];
        if (words[i] == "--frames") {
            o->frames = static_cast<uint32_t>(std::stoul(value));
        } else if (words[i] == "--step") {
            o->step = std::stod(value);
        } else if (words[i] == "--seed") {
            o->seed = std::stoull(value);
        } else if (words[i] == "--json") {
            o->json_path = value;
        } else if (words[i] == "--plots") {
            o->plot_dir = value;
        } else if (words[i] == "--speech") {
            o->speech_path = value;
        } else if (words[i] == "--band") {
            o->bands.emplace_back();
            if (ko_soundcommu_find_band(value.c_str(), &o->bands.back()) != 0) {
                return false;
            }
        } else {
            return false;
        }
        ++i;
    }
    if (o->bands.empty()) {
        o->bands.emplace_back();
        ko_soundcommu_find_band("near-ultrasonic", &o->bands.back());
    }
    return o->frames != 0 && o->step > 0.0;
}

// Whether a channel is to be run: all those with white noise, unless some are named. Other sounds need not be there.
bool is_wanted(const link_channel& channel, const options& o)
{
    return o.channels.empty() ? channel.sound == noise::WHITE
                              : std::find(o.channels.begin(), o.channels.end(), channel.name) != o.channels.end();
}

bool are_wanted(noise sound, const options& o)
{
    return std::any_of(link_channels().begin(), link_channels().end(),
                       [&](const link_channel& c) { return c.sound == sound && is_wanted(c, o); });
}

// Those that the wanted channels need.
sounds make_sounds(const options& o)
{
    random_source piece{1};
    sounds others{are_wanted(noise::SPEECH, o) ? read_speech(o.speech_path) : signal{},
                  are_wanted(noise::MUSIC, o) ? make_music(MUSIC_SECONDS, &piece) : signal{}};
    for (signal* const sound : {&others.speech, &others.music}) {
        scale(sound, sound->empty() ? 1.0 : 1 / std::sqrt(mean_power(*sound, 0, sound->size())));
    }
    return others;
}

bool run_bands(const link_channel& channel, const options& o, const sounds& others, nlohmann::json* report)
{
    std::vector<band_curve> results;
    for (const ko_soundcommu_band_t& where : o.bands) {
        results.push_back({where, {}});
        for (double snr = channel.low_db; snr <= channel.high_db + 1e-9; snr += o.step) {
            results.back().points.push_back(std::make_unique<point>(snr));
        }
        run_channel(channel, o, others, &results.back());
        print(channel, o, results.back());
        report->push_back(to_json(channel, o, results.back()));
    }
    return o.plot_dir.empty() || plot(channel, o, results);
}

} // namespace

int main(int argc, char** argv)
{
    options o;
    log_level = KOSC_LEVEL_ERROR;
    if (!parse({argv + 1, argv + argc}, &o)) {
        return usage();
    }
    log_level = 0;
    const sounds others = make_sounds(o);
    nlohmann::json report = nlohmann::json::array();
    for (const link_channel& channel : link_channels()) {
        if (!is_wanted(channel, o)) {
            continue;
        }
        if (channel.sound == noise::SPEECH && others.speech.empty()) {
            std::fprintf(stderr, "speech needs --speech with a file that espeak-ng wrote\n");
            return 1;
        }
        if (!run_bands(channel, o, others, &report)) {
            std::fprintf(stderr, "gnuplot failed\n");
            return 1;
        }
    }
    if (!o.json_path.empty() && !(std::ofstream(o.json_path) << report.dump(1) << '\n')) {
        std::fprintf(stderr, "cannot write %s\n", o.json_path.c_str());
        return 1;
    }
    return 0;
}
