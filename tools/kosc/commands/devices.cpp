#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "audio/audio_device.h"
#include "commands/commands.h"
#include "commands/received_text.h"
#include "picture/terminal.h"
#include "text.h"

namespace {

struct listed_device {
    audio_device device;
    std::vector<uint32_t> input_rates, output_rates;
    bool default_input, default_output;
};

std::string as_json(const listed_device& listed)
{
    nlohmann::ordered_json object;
    object["index"] = listed.device.index;
    object["name"] = listed.device.name;
    object["system"] = listed.device.host_api;
    object["inputs"] = listed.device.inputs;
    object["outputs"] = listed.device.outputs;
    object["input_rates"] = listed.input_rates;
    object["output_rates"] = listed.output_rates;
    object["default_input"] = listed.default_input;
    object["default_output"] = listed.default_output;
    return json_line(object);
}

std::string side(const char* name, uint32_t channels, const std::vector<uint32_t>& rates, bool is_default)
{
    if (channels == 0) {
        return "";
    }
    std::string line = std::string("      ") + name + std::to_string(channels) + " ch  ";
    for (const uint32_t rate : rates) {
        line += " " + std::to_string(rate);
    }
    return line + (rates.empty() ? " in use, or not connected" : " Hz") + (is_default ? "  (default)" : "") + "\n";
}

std::string as_text(const listed_device& listed)
{
    return kosc_inspect::text("%4d  ", listed.device.index) + listed.device.name + "  [" + listed.device.host_api +
           "]\n" + side("input   ", listed.device.inputs, listed.input_rates, listed.default_input) +
           side("output  ", listed.device.outputs, listed.output_rates, listed.default_output);
}

} // namespace

int run_devices(bool json, bool verbose)
{
    const audio_system system(verbose);
    const std::vector<audio_device> devices = system.devices();
    for (const audio_device& device : devices) {
        const listed_device listed{device, system.rates(device, direction::INPUT),
                                   system.rates(device, direction::OUTPUT),
                                   device.index == system.default_index(direction::INPUT),
                                   device.index == system.default_index(direction::OUTPUT)};
        write_output(json ? as_json(listed) : as_text(listed));
    }
    if (devices.empty()) {
        system.say("there is no sound device");
    }
    return devices.empty() ? EXIT_NO_MESSAGE : EXIT_DONE;
}
