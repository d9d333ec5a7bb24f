#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <tuple>
#include <vector>

#include <nlohmann/json.hpp>

#include "audio/audio_file.h"
#include "audio/sound_writer.h"
#include "commands/commands.h"
#include "commands/each_recording.h"
#include "commands/heard_text.h"
#include "commands/listener.h"
#include "picture/progress_bar.h"
#include "picture/terminal.h"

namespace {

// Where messages are heard, and how they are shown.
class recording {
public:
    recording(const std::string& path, const decode_options& options)
        : path_(path), options_(options), file_(path, options.raw)
    {
        for (uint32_t i = 1; i <= file_.channels(); ++i) { // people and audio editors count channels from 1
            channels_.emplace_back(i, !options.plain);
            silence_ = channels_.back().begin();
        }
    }

    // Prints the messages and returns how many there are.
    uint64_t decode();

private:
    bool one_of_several() const { return options_.inputs.size() > 1; }
    // Below 0 for a frame whose beginning the recording lacks.
    double seconds_of(const heard_message& message) const
    {
        const auto place = static_cast<int64_t>(message.sample) - static_cast<int64_t>(silence_);
        return static_cast<double>(place) / MODEM_SAMPLE_RATE;
    }
    std::string as_json(const heard_message& message) const;
    std::string as_line(const heard_message& message) const;
    void print_block(std::vector<heard_message>& heard) const;
    void say_that_nothing_was_heard() const;

    const std::string& path_;
    const decode_options& options_;
    audio_file file_;
    std::vector<listener> channels_;
    uint32_t silence_ = 0; // samples of it before the recording
};

std::string recording::as_json(const heard_message& message) const
{
    nlohmann::ordered_json object;
    object["file"] = path_;
    object["time"] = rounded(seconds_of(message), 1000.0);
    object["sample"] = std::llround(seconds_of(message) * file_.sample_rate());
    add_message(object, message);
    return object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n"; // a path may be any bytes
}

std::string recording::as_line(const heard_message& message) const
{
    char place[32];
    std::snprintf(place, sizeof place, "%.3f s", rounded(seconds_of(message), 1000.0));
    return (one_of_several() ? path_ + ": " : "") + place + rest_of_line(message, options_.hex);
}

// Prints what a block yielded over all channels, in the order of time: a frame is found with the block that ends it.
void recording::print_block(std::vector<heard_message>& heard) const
{
    std::sort(heard.begin(), heard.end(), [](const heard_message& a, const heard_message& b) {
        return std::tie(a.sample, a.channel) < std::tie(b.sample, b.channel);
    });
    for (const heard_message& message : heard) {
        write_output(options_.json ? as_json(message) : as_line(message));
    }
}

void recording::say_that_nothing_was_heard() const
{
    uint64_t unreadable = 0;
    for (const listener& channel : channels_) {
        unreadable += channel.unreadable_frames();
    }
    std::string sentence = "no message found" + (one_of_several() ? " in " + input_name(path_) : "");
    if (unreadable != 0) {
        sentence += "; possible frames that could not be read: " + std::to_string(unreadable);
    }
    std::fprintf(stderr, "kosc: %s\n", sentence.c_str());
}

uint64_t recording::decode()
{
    progress_bar progress(!options_.quiet && !options_.verbose, file_.seconds());
    uint64_t messages = 0;
    uint64_t samples = 0;
    std::vector<std::vector<int16_t>> pcm;
    for (bool more = true; more;) {
        more = file_.read(pcm);
        std::vector<heard_message> heard;
        for (size_t i = 0; i < channels_.size(); ++i) {
            more ? channels_[i].hear(pcm[i].data(), static_cast<uint32_t>(pcm[i].size()), heard)
                 : channels_[i].finish(heard);
        }
        if (!options_.quiet && !heard.empty()) {
            progress.clear();
            print_block(heard);
        }
        messages += heard.size();
        samples += pcm.front().size();
        progress.update(static_cast<double>(samples) / MODEM_SAMPLE_RATE, messages);
    }
    progress.clear();
    file_.check_complete(options_.quiet);
    if (messages == 0 && !options_.quiet) {
        say_that_nothing_was_heard();
    }
    return messages;
}

} // namespace

int run_decode(const decode_options& options)
{
    return for_each_recording(options.inputs, [&](const std::string& path) {
        return recording(path, options).decode() != 0 ? EXIT_DONE : EXIT_NONE_HEARD;
    });
}
