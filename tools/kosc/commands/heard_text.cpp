#include "commands/heard_text.h"

#include <cmath>

#include "commands/message_text.h"

double rounded(double value, double steps) { return std::round(value * steps) / steps + 0.0; }

void add_message(nlohmann::ordered_json& object, const heard_message& message)
{
    const auto text = text_of_message(message.bytes);
    object["channel"] = message.channel;
    object["band"] = message.band;
    object["text"] = text ? nlohmann::ordered_json(*text) : nlohmann::ordered_json(nullptr);
    object["hex"] = hex_of_message(message.bytes);
    object["correlation"] = rounded(message.correlation, 1000.0);
    if (message.measured) {
        object["snr_db"] = rounded(message.snr_db, 10.0);
        object["drift_ppm"] = rounded(message.drift_ppm, 1.0);
    }
    object["second_look"] = message.second_look_needed;
}

std::string rest_of_line(const heard_message& message, bool hex, bool band)
{
    const std::string digits = hex_of_message(message.bytes);
    return "  ch " + std::to_string(message.channel) + "  " + (band ? message.band + "  " : "") +
           (hex ? digits : text_of_message(message.bytes).value_or(digits)) +
           (message.second_look_needed ? "  [second look]\n" : "\n");
}
