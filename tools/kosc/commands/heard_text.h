// A heard message as people and programs read it; where and when it was heard is the caller's to tell.
#ifndef KOSC_TOOL_HEARD_TEXT_H
#define KOSC_TOOL_HEARD_TEXT_H

#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "commands/listener.h"
#include "transfer/collector.h"

// Adds "channel", "band", "text", "hex", "correlation", "snr_db", "drift_ppm" and "second_look" to an object.
void add_message(nlohmann::ordered_json& object, const heard_message& message);

// The channel, the band if wanted, and the message up to the line's end, as hex digits if wanted or if it is no text.
std::string rest_of_line(const heard_message& message, bool hex, bool band);

// The same of a payload that came whole with `last`: a text with its further lines indented and without control
// characters, or what became of a file. In JSON it has "channel", "band", "text" and "transfer".
std::string rest_of_line(const heard_message& last, const delivery& delivered, bool hex, bool band);
void add_delivery(nlohmann::ordered_json& object, const heard_message& last, const delivery& delivered);
// "channel" and "band" of its first message, and "transfer", of a transfer that is not whole.
void add_unfinished(nlohmann::ordered_json& object, const unfinished& part);

// Adds "text" and "hex"; both null without a message.
void add_bytes(nlohmann::ordered_json& object, const std::optional<message_bytes>& message);

// `value` to one of `steps` between whole numbers, without a minus before zero.
double rounded(double value, double steps);
// The same; null where there is no value.
nlohmann::ordered_json rounded_or_null(const std::optional<double>& value, double steps);

// The object on a line. What is no UTF-8 in it is replaced: paths, names that were sent, and names of devices may be
// any bytes.
std::string json_line(const nlohmann::ordered_json& object);

#endif
