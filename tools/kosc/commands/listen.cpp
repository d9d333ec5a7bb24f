#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "audio/audio_file.h"
#include "audio/audio_stream.h"
#include "commands/commands.h"
#include "commands/heard_text.h"
#include "commands/listener.h"
#include "commands/stop_request.h"
#include "picture/band_meter.h"
#include "picture/terminal.h"

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

std::string as_json(const heard_message& message, wall_time time)
{
    nlohmann::ordered_json object;
    object["time"] = as_text(time, gmtime_r, "%Y-%m-%dT%H:%M:%S") + "Z";
    add_message(object, message);
    return object.dump() + "\n";
}

std::string as_line(const heard_message& message, wall_time time, bool hex)
{
    return as_text(time, localtime_r, "%H:%M:%S") + rest_of_line(message, hex);
}

// The meter on the user's terminal, if standard error is one.
class meter_line {
public:
    meter_line(int descriptor, bool wanted) : descriptor_(wanted && isatty(descriptor) != 0 ? descriptor : -1) {}
    ~meter_line() { clear(); }
    meter_line(const meter_line&) = delete;
    meter_line& operator=(const meter_line&) = delete;

    void hear(const std::vector<int16_t>& pcm)
    {
        if (descriptor_ >= 0 && meter_.hear(pcm)) {
            dprintf(descriptor_, "\r%s\033[K", meter_.line().c_str());
            shown_ = true;
        }
    }
    void clear()
    {
        if (shown_) {
            dprintf(descriptor_, "\r\033[K");
            shown_ = false;
        }
    }

private:
    int descriptor_; // -1: none
    bool shown_ = false;
    band_meter meter_;
};

class live_session {
public:
    live_session(const listen_options& options, const audio_system& system, input_stream& input, bool verbose)
        : options_(options), system_(system), input_(input), meter_(system.standard_error(), !verbose)
    {
        for (uint32_t i = 1; i <= input.channels(); ++i) { // people count channels from 1
            ears_.emplace_back(i, !options.plain);
        }
    }

    // Listens until a stop is requested or the time is over.
    void run()
    {
        const auto end = steady_clock::now() + std::chrono::duration<double>(options_.seconds);
        std::vector<std::vector<int16_t>> pcm;
        while (!stop_requested() && (options_.seconds == 0.0 || steady_clock::now() < end)) {
            input_.read(pcm);
            hear(pcm);
            report_losses();
        }
    }

    // What is still in the receivers. The device may be gone by now.
    void finish()
    {
        std::vector<heard_message> heard;
        for (listener& ear : ears_) {
            ear.finish(heard);
        }
        print(heard);
        meter_.clear();
        if (losses_said_ != 0) {
            system_.say("in all " + losses());
        }
    }

    uint64_t messages() const { return messages_; }

private:
    void hear(const std::vector<std::vector<int16_t>>& pcm)
    {
        if (pcm.front().empty()) {
            return;
        }
        std::vector<heard_message> heard;
        for (size_t i = 0; i < ears_.size(); ++i) {
            ears_[i].hear(pcm[i].data(), static_cast<uint32_t>(pcm[i].size()), heard);
        }
        samples_ += pcm.front().size();
        last_sample_ = input_.time_of_last_sample();
        print(heard);
        meter_.hear(pcm.front());
    }

    void print(const std::vector<heard_message>& heard)
    {
        for (const heard_message& message : heard) {
            const std::chrono::duration<double> ago(static_cast<double>(samples_ - message.sample) / MODEM_SAMPLE_RATE);
            const wall_time time = last_sample_ - std::chrono::duration_cast<wall_time::duration>(ago);
            meter_.clear();
            write_output(options_.json ? as_json(message, time) : as_line(message, time, options_.hex));
        }
        messages_ += heard.size();
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
        meter_.clear();
        system_.say(losses());
    }

    const listen_options& options_;
    const audio_system& system_;
    input_stream& input_;
    meter_line meter_;
    std::vector<listener> ears_;
    uint64_t samples_ = 0; // a channel, heard so far
    wall_time last_sample_;
    uint64_t messages_ = 0;
    uint64_t losses_said_ = 0;
    steady_clock::time_point quiet_until_;
};

} // namespace

int run_listen(const listen_options& options, bool verbose)
{
    catch_stop_signals(false);
    const audio_system system(verbose);
    const audio_device device = system.find(options.device, direction::INPUT);
    constexpr uint32_t USUAL_CHANNELS = 2;
    const uint32_t channels = options.channels != 0 ? options.channels : std::min(device.inputs, USUAL_CHANNELS);
    input_stream input(system, device, channels, options.rate);
    input.start();
    live_session session(options, system, input, verbose);
    try {
        session.run();
    } catch (const std::runtime_error&) {
        session.finish();
        throw;
    }
    session.finish();
    return session.messages() != 0 ? EXIT_DONE : EXIT_NONE_HEARD;
}
