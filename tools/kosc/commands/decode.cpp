#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <tuple>
#include <vector>

#include <nlohmann/json.hpp>

#include "audio/audio_file.h"
#include "commands/commands.h"
#include "commands/heard_text.h"
#include "commands/listener.h"
#include "picture/terminal.h"

namespace {

double seconds_of(const heard_message& message) { return static_cast<double>(message.sample) / MODEM_SAMPLE_RATE; }

std::string as_json(const heard_message& message, uint32_t file_rate)
{
    nlohmann::ordered_json object;
    object["time"] = rounded(seconds_of(message), 1000.0);
    object["sample"] = std::llround(seconds_of(message) * file_rate);
    add_message(object, message);
    return object.dump() + "\n";
}

std::string as_line(const heard_message& message, bool hex)
{
    char place[32];
    std::snprintf(place, sizeof place, "%.3f s", seconds_of(message));
    return place + rest_of_line(message, hex);
}

// Prints what a block yielded over all channels, in the order of time: a frame is found with the block that ends it.
void print_block(std::vector<heard_message>& heard, const decode_options& options, uint32_t file_rate)
{
    std::sort(heard.begin(), heard.end(), [](const heard_message& a, const heard_message& b) {
        return std::tie(a.sample, a.channel) < std::tie(b.sample, b.channel);
    });
    for (const heard_message& message : heard) {
        write_output(options.json ? as_json(message, file_rate) : as_line(message, options.hex));
    }
}

void say_that_nothing_was_heard(const std::vector<listener>& channels)
{
    uint64_t unreadable = 0;
    for (const listener& channel : channels) {
        unreadable += channel.unreadable_frames();
    }
    if (unreadable == 0) {
        std::fputs("kosc: no message found\n", stderr);
    } else {
        std::fprintf(stderr, "kosc: no message found; possible frames that could not be read: %llu\n",
                     static_cast<unsigned long long>(unreadable));
    }
}

} // namespace

int run_decode(const decode_options& options)
{
    audio_file file(options.input);
    std::vector<listener> channels;
    for (uint32_t i = 1; i <= file.channels(); ++i) { // people and audio editors count channels from 1
        channels.emplace_back(i, !options.plain);
    }
    progress_line progress(!options.quiet && !options.verbose, file.seconds());
    uint64_t messages = 0;
    uint64_t samples = 0;
    std::vector<std::vector<int16_t>> pcm;
    for (bool more = true; more;) {
        more = file.read(pcm);
        std::vector<heard_message> heard;
        for (size_t i = 0; i < channels.size(); ++i) {
            more ? channels[i].hear(pcm[i].data(), static_cast<uint32_t>(pcm[i].size()), heard)
                 : channels[i].finish(heard);
        }
        if (!options.quiet && !heard.empty()) {
            progress.clear();
            print_block(heard, options, file.sample_rate());
        }
        messages += heard.size();
        samples += pcm.front().size();
        progress.update(static_cast<double>(samples) / MODEM_SAMPLE_RATE);
    }
    progress.clear();
    file.check_complete();
    if (messages == 0 && !options.quiet) {
        say_that_nothing_was_heard(channels);
    }
    return messages != 0 ? EXIT_DONE : EXIT_NONE_HEARD;
}
