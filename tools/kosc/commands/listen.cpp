#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "audio/audio_file.h"
#include "audio/audio_stream.h"
#include "audio/sound_recorder.h"
#include "commands/commands.h"
#include "commands/listener.h"
#include "commands/message_joiner.h"
#include "commands/received_text.h"
#include "commands/stop_request.h"
#include "picture/band_meter.h"
#include "picture/terminal.h"
#include "text.h"

namespace {

using std::chrono::steady_clock;
using wall_time = std::chrono::system_clock::time_point;

// The time by `format`, with milliseconds.
std::string as_text(wall_time time, std::tm* (*broken_down)(const std::time_t*, std::tm*), const char* format)
{
    const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
    const std::time_t seconds = milliseconds / 1000;
    std::tm parts{};
    char text[64];
    const size_t length = std::strftime(text, sizeof text, format, broken_down(&seconds, &parts));
    std::snprintf(text + length, sizeof text - length, ".%03d", static_cast<int>(milliseconds % 1000));
    return text;
}

class live_session {
public:
    live_session(const listen_options& options, const std::optional<secret_key>& key, const audio_system& system,
                 const audio_device& device, input_stream& input, bool verbose)
        : options_(options), system_(system), device_name_(device.name), input_(input),
          meter_(system.standard_error(), !verbose, input.bands()),
          listener_(input.channels(), input.bands(), options.receiver, BEGINS_SOMEWHERE),
          joiner_(input.channels(), options.receiver.crowd),
          collector_(options.transfers, key, [this](const std::string& sentence) { say(sentence); })
    {
        if (const std::string missing = left_out(input.rate(), options.bands); !missing.empty()) {
            system.say(missing);
        }
        if (!options.record.empty()) {
            recorder_.emplace(options.record, input.channels());
        }
    }

    // Listens until a stop is requested, the time is over or enough messages have come.
    void run()
    {
        std::vector<std::vector<int16_t>> pcm;
        while (!stop_requested() && !enough() && !time_is_over()) {
            check_output_reader();
            input_.read(pcm);
            receive(pcm);
            report_losses();
        }
    }

    // What is still in the receivers. The device may be gone by now.
    void finish()
    {
        take(listener_.finish(), INT64_MAX);
        end_transfers();
        meter_.clear();
        if (losses_said_ != 0) {
            system_.say("in all " + losses());
        }
        if (recorder_) {
            recorder_->close();
        }
    }

    exit_code result() const
    {
        return collector_.failed() ? EXIT_FAILED : messages_ != 0 ? EXIT_DONE : EXIT_NO_MESSAGE;
    }

private:
    static constexpr bool BEGINS_SOMEWHERE = false; // what came before the device began is gone

    bool time_is_over() const
    {
        return options_.seconds != 0.0 && samples_ != 0 &&
               steady_clock::now() - begun_ >= std::chrono::duration<double>(options_.seconds);
    }

    void say_what_is_received() const
    {
        if (!meter_.enabled()) {
            system_.say("listening on " + device_name_ + ", " + std::to_string(input_.rate()) + " Hz, " +
                        kosc_inspect::counted(input_.channels(), "channel"));
        }
    }

    bool enough() const { return options_.count != 0 && messages_ >= options_.count; }

    void receive(const std::vector<std::vector<int16_t>>& pcm)
    {
        if (pcm.front().empty()) {
            return;
        }
        if (samples_ == 0) { // devices may take long to begin
            begun_ = steady_clock::now();
            say_what_is_received();
        }
        const std::vector<received_message> messages = listener_.receive(pcm);
        samples_ += static_cast<int64_t>(pcm.front().size());
        last_sample_ = input_.time_of_last_sample();
        take(messages, samples_);
        meter_.process(pcm.front(), meter_.enabled() ? collector_.progress(samples_, meter_.columns()) : "");
        if (recorder_) {
            recorder_->write(pcm);
        }
    }

    // Prints what was heard up to `end`: each channel's message at once, or one line when its channels are known.
    void take(const std::vector<received_message>& messages, int64_t end)
    {
        const bool at_once = options_.json || options_.all_channels;
        for (const received_message& message : messages) {
            if (taken_as_transfer(message)) {
                continue;
            }
            const uint64_t before = messages_ + joiner_.add(message);
            if (at_once && (options_.count == 0 || before < options_.count)) {
                print({message});
            }
        }
        for (received_message message; !enough() && joiner_.next(end, message); ++messages_) {
            if (!at_once) {
                print({message});
            }
        }
    }

    // Whether no more is to be done with it; a transfer is one message, whatever the number of channels that hear it.
    bool taken_as_transfer(const received_message& message)
    {
        delivery delivered;
        const auto verdict = enough() ? collector::verdict::OTHER : collector_.take(message, delivered);
        if (verdict == collector::verdict::DELIVERED) {
            ++messages_;
            print({message, &delivered});
        }
        return verdict != collector::verdict::OTHER;
    }

    void end_transfers()
    {
        for (const unfinished& each : collector_.rest()) {
            if (each.held == 1 && collector_.takes_plain() &&
                !enough()) { // one that is alone may only look like a transfer's
                ++messages_;
                print({each.first});
            }
        }
        collector_.say_what_is_missing();
    }

    void print(const received_item& item)
    {
        const std::chrono::duration<double> ago(static_cast<double>(samples_ - item.message.sample) /
                                                kosc::SAMPLE_RATE);
        const wall_time time = last_sample_ - std::chrono::duration_cast<wall_time::duration>(ago);
        meter_.clear();
        if (!options_.json) {
            write_output(as_text(time, localtime_r, "%H:%M:%S") +
                         rest_of_line(item, options_.hex, options_.bands.size() > 1));
            return;
        }
        nlohmann::ordered_json object;
        object["time"] = as_text(time, gmtime_r, "%Y-%m-%dT%H:%M:%S") + "Z";
        add_members(object, item);
        write_output(json_line(object));
    }

    void say(const std::string& sentence)
    {
        meter_.clear();
        system_.say(sentence);
    }

    std::string losses() const
    {
        return std::to_string(input_.lost_samples()) + " samples lost because decoding was too slow, and " +
               std::to_string(input_.device_overruns()) + " overruns in the device";
    }

    void report_losses()
    {
        const uint64_t now = input_.lost_samples() + input_.device_overruns();
        if (now == losses_said_ || steady_clock::now() < quiet_until_) {
            return;
        }
        losses_said_ = now;
        quiet_until_ = steady_clock::now() + std::chrono::seconds(1);
        say(losses());
    }

    const listen_options& options_;
    const audio_system& system_;
    std::string device_name_;
    input_stream& input_;
    meter_line meter_;
    listener listener_;
    message_joiner joiner_;
    collector collector_;
    std::optional<sound_recorder> recorder_;
    int64_t samples_ = 0;            // a channel, heard so far
    steady_clock::time_point begun_; // when the first samples came
    wall_time last_sample_;
    uint64_t messages_ = 0; // whatever the number of channels that heard them
    uint64_t losses_said_ = 0;
    steady_clock::time_point quiet_until_;
};

int listen(const listen_options& options, bool verbose)
{
    const std::optional<secret_key> key = key_of(options.transfers.key);
    catch_stop_signals(false);
    const audio_system system(verbose);
    const audio_device device = system.find(options.device, direction::INPUT);
    constexpr uint32_t USUAL_CHANNELS = 2;
    const uint32_t channels = options.channels != 0 ? options.channels : std::min(device.inputs, USUAL_CHANNELS);
    input_stream input(system, device, channels, options.rate, options.bands);
    live_session session(options, key, system, device, input, verbose);
    input.start();
    try {
        session.run();
    } catch (const std::runtime_error&) {
        session.finish();
        throw;
    }
    session.finish();
    return session.result();
}

} // namespace

int run_listen(const listen_options& options, bool verbose)
{
    if (options.record == STANDARD_STREAM) {
        throw std::runtime_error("--record takes a file: standard output has the messages");
    }
    return listen(options, verbose);
}
