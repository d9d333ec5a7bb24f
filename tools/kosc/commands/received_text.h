// A heard message as people and programs read it; where and when it was heard is the caller's to tell.
#ifndef KOSC_TOOL_RECEIVED_TEXT_H
#define KOSC_TOOL_RECEIVED_TEXT_H

#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "commands/listener.h"
#include "transfer/collector.h"

// Something heard: a message, a payload that came whole with it, or a transfer, not whole, that began with it.
struct received_item {
    const received_message& message;
    const delivery* delivered = nullptr;
    const unfinished* part = nullptr;
};

// The channel, the band if wanted, and the message up to the line's end, as hex digits if wanted or if it is no text.
// Of a payload, a text with its further lines indented and without control characters, or what became of a file.
std::string rest_of_line(const received_item& item, bool hex, bool band);

// Adds "channel", "band", "text" and, of a message, "hex", "correlation", "snr_db", "drift_ppm" and "second_look", of
// the others "transfer".
void add_members(nlohmann::ordered_json& object, const received_item& item);

// Adds "text" and "hex"; both null without a message.
void add_bytes(nlohmann::ordered_json& object, const std::optional<message_bytes>& message);

// From how many frames and microphones a message was put together, as a part of a sentence and as an object.
std::string sources_of(const combined_report_t& from);
nlohmann::ordered_json as_json(const combined_report_t& from);

// `value` to one of `steps` between whole numbers, without a minus before zero.
double rounded(double value, double steps);
// The same; null where there is no value.
nlohmann::ordered_json rounded_or_null(const std::optional<double>& value, double steps);

// The object on a line. What is no UTF-8 in it is replaced: paths, names that were sent, and names of devices may be
// any bytes.
std::string json_line(const nlohmann::ordered_json& object);

#endif
