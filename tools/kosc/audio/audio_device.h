// The sound system and its devices.
#ifndef KOSC_TOOL_AUDIO_DEVICE_H
#define KOSC_TOOL_AUDIO_DEVICE_H

#include <cstdint>
#include <string>
#include <vector>

enum class direction { INPUT, OUTPUT };

struct audio_device {
    int index;
    std::string name;
    std::string host_api;
    uint32_t inputs; // channels
    uint32_t outputs;
    // Seconds to ask for.
    double input_latency;
    double output_latency;

    uint32_t channels(direction way) const { return way == direction::INPUT ? inputs : outputs; }
    double latency(direction way) const { return way == direction::INPUT ? input_latency : output_latency; }
};

// The sound system; lives as long as anything that uses devices.
class audio_system {
public:
    // Throws when it cannot be started. The libraries under it write what they find odd to standard error, without
    // being asked: unless `verbose`, it goes nowhere as long as this object lives.
    explicit audio_system(bool verbose);
    ~audio_system();
    audio_system(const audio_system&) = delete;
    audio_system& operator=(const audio_system&) = delete;

    std::vector<audio_device> devices() const;
    // -1: there is none.
    int default_index(direction way) const;
    // The device that has `name` as its index, name, or part of its name, whatever the case; the default one for an
    // empty `name`. Throws when none or more than one fits, or the one that fits cannot do it.
    audio_device find(const std::string& name, direction way) const;
    // Which of the usual rates it takes; none when it is in use and does not share.
    std::vector<uint32_t> rates(const audio_device& device, direction way) const;

    // The user's standard error, for output while this object lives.
    int standard_error() const { return standard_error_; }
    // Writes a sentence of the command's there.
    void say(const std::string& sentence) const;

private:
    void restore_standard_error();

    int standard_error_;
};

#endif
