#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "audio/audio_file.h"
#include "audio/frame_sound.h"
#include "audio/sound_writer.h"
#include "commands/commands.h"
#include "commands/message_text.h"

namespace {

using kosc_link::FULL_SCALE;

// "2.7:0.5": an echo 2.7 milliseconds late, half as loud as the direct sound.
kosc_link::tap parse_echo(const std::string& text)
{
    double milliseconds = -1.0;
    double gain = 0.0;
    char rest = 0;
    constexpr double LATEST = 2000.0;
    if (std::sscanf(text.c_str(), "%lf:%lf%c", &milliseconds, &gain, &rest) != 2 ||
        !(milliseconds > 0.0 && milliseconds <= LATEST && std::fabs(gain) <= 1.0)) {
        throw std::runtime_error("--echo takes MS:GAIN, a delay of up to 2000 ms and a gain from -1 to 1, not '" +
                                 text + "'");
    }
    return {static_cast<size_t>(std::lround(milliseconds * kosc::SAMPLE_RATE / 1000)), gain};
}

kosc_link::sound_path path_of(const simulate_options& options)
{
    const std::map<std::string, kosc_link::noise_kind> kinds = {{"white", kosc_link::noise_kind::white},
                                                                {"pink", kosc_link::noise_kind::pink},
                                                                {"speech", kosc_link::noise_kind::speech}};
    kosc_link::sound_path path = options.path;
    std::transform(options.echoes.begin(), options.echoes.end(), std::back_inserter(path.echoes), parse_echo);
    path.noise = kinds.at(options.noise);
    path.sent_in = {options.band.low_hz, options.band.high_hz};
    return path;
}

std::vector<kosc_link::signal> read_all(const simulate_options& options)
{
    constexpr size_t MOST_SAMPLES = size_t{30} * 60 * kosc::SAMPLE_RATE;
    constexpr const char* TOO_LONG = " is too long: half an hour over all channels is the limit";
    audio_file file(options.input, options.raw, {options.band});
    std::vector<kosc_link::signal> channels;
    for (const std::vector<int16_t>& pcm : file.read_all(MOST_SAMPLES, input_name(options.input) + TOO_LONG)) {
        channels.emplace_back(pcm.begin(), pcm.end());
    }
    return channels;
}

// Mixes in what other devices send: one frame each, at a random time, on a clock and with a level of its own. They are
// as near to all channels.
void add_senders(const simulate_options& options, kosc_link::random_source* random,
                 std::vector<kosc_link::signal>* channels)
{
    constexpr double MOST_PPM = 100.0;
    constexpr double LEVELS_DB = 12.0;
    if (options.senders < 2) {
        return;
    }
    const frame_encoder encoder({options.band});
    const double loudest = std::sqrt(kosc_link::loud_power(channels->front()));
    for (uint32_t i = 2; i <= options.senders; ++i) {
        const std::vector<int16_t> frame = encoder.encode({message_from_text("sender " + std::to_string(i))});
        const double ppm = MOST_PPM * (2 * random->uniform() - 1);
        kosc_link::signal sound = kosc_link::drift({frame.begin(), frame.end()}, ppm, ppm, 0, 0);
        const double level = loudest * kosc_link::from_db(-LEVELS_DB * random->uniform());
        kosc_link::scale(&sound, level / std::sqrt(kosc_link::loud_power(sound)));
        const size_t length = channels->front().size();
        const size_t room = length > sound.size() ? length - sound.size() : 0;
        const auto start = static_cast<size_t>(random->uniform() * static_cast<double>(room));
        for (kosc_link::signal& channel : *channels) {
            channel.resize(std::max(channel.size(), start + sound.size()));
            std::transform(sound.begin(), sound.end(), channel.begin() + static_cast<ptrdiff_t>(start),
                           channel.begin() + static_cast<ptrdiff_t>(start), std::plus<>());
        }
    }
}

void warn_of_overload(const std::vector<kosc_link::signal>& channels)
{
    size_t beyond = 0;
    for (const kosc_link::signal& channel : channels) {
        beyond += static_cast<size_t>(
            std::count_if(channel.begin(), channel.end(), [](double x) { return std::fabs(x) > FULL_SCALE; }));
    }
    if (beyond != 0) {
        std::fprintf(stderr, "kosc: %zu samples were beyond full scale and are clipped; a lower --gain avoids it\n",
                     beyond);
    }
}

} // namespace

int run_simulate(const simulate_options& options)
{
    check_sound_name(options.output);
    const kosc_link::sound_path path = path_of(options);
    std::vector<kosc_link::signal> channels = read_all(options);
    kosc_link::random_source random(options.seed);
    add_senders(options, &random, &channels);
    std::vector<std::vector<int16_t>> pcm;
    for (kosc_link::signal& channel : channels) {
        channel = kosc_link::pass(channel, path, &random);
        pcm.push_back(kosc_link::to_pcm(channel));
    }
    warn_of_overload(channels);
    write_sound(options.output, interleaved(pcm), static_cast<uint32_t>(channels.size()));
    return EXIT_DONE;
}
