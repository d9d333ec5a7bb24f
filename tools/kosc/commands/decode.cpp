#include <cmath>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "audio/audio_file.h"
#include "audio/sound_writer.h"
#include "commands/commands.h"
#include "commands/each_recording.h"
#include "commands/listener.h"
#include "commands/received_text.h"
#include "picture/progress_bar.h"
#include "picture/terminal.h"
#include "text.h"

namespace {

// Where messages are heard, and how they are shown.
class recording {
public:
    recording(const std::string& path, const decode_options& options, const std::optional<secret_key>& key)
        : path_(path), options_(options), file_(path, options.raw, options.bands),
          listener_(file_.channels(), file_.bands(), options.receiver, BEGINS_SOMEWHERE),
          progress_(!options.quiet && !options.verbose, file_.seconds()),
          collector_(options.transfers, key, [this](const std::string& sentence) { say(sentence); })
    {
        if (const std::string missing = left_out(file_.sample_rate(), options.bands);
            !missing.empty() && !options.quiet) {
            std::fprintf(stderr, "kosc: %s: %s\n", input_name(path).c_str(), missing.c_str());
        }
    }

    // Prints the messages and tells whether there are any.
    exit_code decode();

private:
    static constexpr bool BEGINS_SOMEWHERE = true;

    bool one_of_several() const { return options_.inputs.size() > 1; }
    void print(const received_item& item);
    void take(const received_message& message);
    void end_transfers();
    void say(const std::string& sentence);
    void say_that_there_is_no_message() const;

    const std::string& path_;
    const decode_options& options_;
    audio_file file_;
    listener listener_;
    progress_bar progress_;
    collector collector_;
    uint64_t messages_ = 0; // a transfer is one
};

// Below 0 for a frame whose beginning the recording lacks.
double seconds_of(const received_message& message) { return static_cast<double>(message.sample) / kosc::SAMPLE_RATE; }

void recording::print(const received_item& item)
{
    messages_ += item.part == nullptr ? 1 : 0;
    if (options_.quiet) {
        return;
    }
    const double seconds = seconds_of(item.message);
    progress_.clear();
    if (!options_.json) {
        write_output((one_of_several() ? path_ + ": " : "") + kosc_inspect::text("%.3f s", rounded(seconds, 1000.0)) +
                     rest_of_line(item, options_.hex, options_.bands.size() > 1));
        return;
    }
    nlohmann::ordered_json object;
    object["file"] = path_;
    object["time"] = rounded(seconds, 1000.0);
    object["sample"] = std::llround(seconds * file_.sample_rate());
    add_members(object, item);
    write_output(json_line(object));
}

void recording::take(const received_message& message)
{
    delivery delivered;
    const collector::verdict verdict = collector_.take(message, delivered);
    if (verdict == collector::verdict::OTHER) {
        print({message});
    } else if (verdict == collector::verdict::DELIVERED) {
        print({message, &delivered});
    }
}

void recording::end_transfers()
{
    for (const unfinished& each : collector_.rest()) {
        if (each.held == 1 && collector_.takes_plain()) { // one that is alone may only look like a transfer's
            print({each.first});
        }
        if (options_.json) {
            print({each.first, nullptr, &each});
        }
    }
    collector_.say_what_is_missing();
}

void recording::say(const std::string& sentence)
{
    if (!options_.quiet) {
        progress_.clear();
        std::fprintf(stderr, "kosc: %s\n", ((one_of_several() ? input_name(path_) + ": " : "") + sentence).c_str());
    }
}

void recording::say_that_there_is_no_message() const
{
    const uint64_t unreadable = listener_.unreadable_frames();
    std::string sentence = "no message found" + (one_of_several() ? " in " + input_name(path_) : "");
    if (unreadable != 0) {
        sentence += "; possible frames that could not be read: " + std::to_string(unreadable);
    }
    std::fprintf(stderr, "kosc: %s\n", sentence.c_str());
}

exit_code recording::decode()
{
    uint64_t samples = 0;
    std::vector<std::vector<int16_t>> pcm;
    for (bool more = true; more;) {
        more = file_.read(pcm);
        for (const received_message& message : more ? listener_.receive(pcm) : listener_.finish()) {
            take(message);
        }
        samples += pcm.front().size();
        progress_.update(static_cast<double>(samples) / kosc::SAMPLE_RATE, messages_);
    }
    end_transfers();
    progress_.clear();
    file_.check_complete(options_.quiet);
    if (messages_ == 0 && !options_.quiet) {
        say_that_there_is_no_message();
    }
    return collector_.failed() ? EXIT_FAILED : messages_ != 0 ? EXIT_DONE : EXIT_NO_MESSAGE;
}

} // namespace

int run_decode(const decode_options& options)
{
    const std::optional<secret_key> key = key_of(options.transfers.key);
    return for_each_recording(options.inputs,
                              [&](const std::string& path) { return recording(path, options, key).decode(); });
}
