#include <cmath>
#include <cstdio>
#include <string>
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
        : path_(path), options_(options), file_(path, options.raw, options.bands),
          listener_(file_.channels(), file_.bands(), !options.plain, BEGINS_SOMEWHERE)
    {
        if (const std::string missing = left_out(file_.sample_rate(), options.bands);
            !missing.empty() && !options.quiet) {
            std::fprintf(stderr, "kosc: %s: %s\n", input_name(path).c_str(), missing.c_str());
        }
    }

    // Prints the messages and returns how many there are.
    uint64_t decode();

private:
    static constexpr bool BEGINS_SOMEWHERE = true;

    bool one_of_several() const { return options_.inputs.size() > 1; }
    std::string as_json(const heard_message& message) const;
    std::string as_line(const heard_message& message) const;
    void say_that_nothing_was_heard() const;

    const std::string& path_;
    const decode_options& options_;
    audio_file file_;
    listener listener_;
};

// Below 0 for a frame whose beginning the recording lacks.
double seconds_of(const heard_message& message) { return static_cast<double>(message.sample) / MODEM_SAMPLE_RATE; }

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
    return (one_of_several() ? path_ + ": " : "") + place +
           rest_of_line(message, options_.hex, options_.bands.size() > 1);
}

void recording::say_that_nothing_was_heard() const
{
    const uint64_t unreadable = listener_.unreadable_frames();
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
        const std::vector<heard_message> heard = more ? listener_.hear(pcm) : listener_.finish();
        if (!options_.quiet && !heard.empty()) {
            progress.clear();
            for (const heard_message& message : heard) {
                write_output(options_.json ? as_json(message) : as_line(message));
            }
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
