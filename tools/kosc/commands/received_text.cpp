#include "commands/received_text.h"

#include <cmath>

#include "commands/message_text.h"
#include "text.h"
#include "transfer/file_name.h"

using kosc_inspect::counted;

namespace {

std::string digits_of(char byte)
{
    return kosc_inspect::text("\\x%02x", static_cast<unsigned>(static_cast<uint8_t>(byte)));
}

// UTF-8 text for a terminal: control characters as \x1b and the like, further lines indented, so that none looks like a
// message.
std::string printable(const std::string& text)
{
    constexpr char C1_LEAD = '\xC2';
    std::string shown;
    for (size_t i = 0; i < text.size(); ++i) {
        const char letter = text[i];
        if (letter == '\n') {
            shown += i + 1 < text.size() ? "\n    " : "";
        } else if (letter == '\t' || (letter == '\r' && text.substr(i + 1, 1) == "\n")) {
            shown += letter == '\t' ? "\t" : "";
        } else if (letter == C1_LEAD && has_controls(text.substr(i, 2))) {
            shown += digits_of(letter) + digits_of(text[++i]);
        } else {
            shown += has_controls({letter}) ? digits_of(letter) : std::string{letter};
        }
    }
    return shown;
}

std::optional<std::string> text_in(const delivery& delivered)
{
    std::string text(delivered.content.bytes.begin(), delivered.content.bytes.end());
    return delivered.content.kind == KOSC_TRANSFER_TEXT && is_utf8(text) ? std::optional(text) : std::nullopt;
}

std::string line_of(const received_message& message, bool hex)
{
    const std::string line = hex ? hex_of_message(message.bytes) : shown(message.bytes);
    if (!message.combined) {
        return line + (message.second_look_needed ? "  [second look]\n" : "\n");
    }
    return line + "  [" + sources_of(*message.combined) +
           kosc_inspect::text(", SNR %.1f dB]\n", rounded(message.combined->snr_db, 10.0));
}

std::string line_of(const delivery& delivered, bool hex)
{
    std::string line;
    if (const auto text = text_in(delivered)) {
        line = hex ? hex_of_message(delivered.content.bytes) : printable(*text);
    } else {
        line = delivered.content.kind == KOSC_TRANSFER_FILE ? "file " : "";
        line += delivered.name.empty() ? "" : safe_name(delivered.name, "?") + ", ";
        line += counted(delivered.size, "byte") + ", ";
        line += delivered.saved.empty() ? "not saved" : "saved as " + delivered.saved;
    }
    return line + (delivered.sealed ? "  [sealed]\n" : "\n");
}

void add(nlohmann::ordered_json& object, const received_message& message)
{
    add_bytes(object, message.bytes);
    if (!message.combined) {
        object["correlation"] = rounded(message.correlation, 1000.0);
    }
    if (message.measured) {
        object["snr_db"] = rounded(message.snr_db, 10.0);
        object["drift_ppm"] = rounded(message.drift_ppm, 1.0);
    }
    object["second_look"] = message.second_look_needed;
    if (message.combined) {
        object["combined"] = as_json(*message.combined);
    }
}

void add(nlohmann::ordered_json& object, const delivery& delivered)
{
    const auto text = text_in(delivered);
    object["text"] = text ? nlohmann::ordered_json(*text) : nullptr;
    nlohmann::ordered_json& transfer = object["transfer"];
    transfer["id"] = delivered.id;
    transfer["messages"] = delivered.messages;
    transfer["held"] = delivered.messages;
    transfer["kind"] = text ? "text" : delivered.content.kind == KOSC_TRANSFER_FILE ? "file" : "bytes";
    transfer["bytes"] = delivered.size;
    transfer["sealed"] = delivered.sealed;
    if (!text) {
        transfer["name"] = delivered.name;
        transfer["saved"] = delivered.saved.empty() ? nullptr : nlohmann::ordered_json(delivered.saved);
    }
}

void add(nlohmann::ordered_json& object, const unfinished& part)
{
    object["text"] = nullptr;
    object["transfer"] = {{"id", part.id}, {"messages", part.needed}, {"held", part.held}};
}

} // namespace

void add_bytes(nlohmann::ordered_json& object, const std::optional<message_bytes>& message)
{
    const auto text = message ? text_of_message(*message) : std::nullopt;
    object["text"] = text ? nlohmann::ordered_json(*text) : nullptr;
    object["hex"] = message ? nlohmann::ordered_json(hex_of_message(*message)) : nullptr;
}

double rounded(double value, double steps) { return std::round(value * steps) / steps + 0.0; }

nlohmann::ordered_json rounded_or_null(const std::optional<double>& value, double steps)
{
    return value ? nlohmann::ordered_json(rounded(*value, steps)) : nullptr;
}

std::string sources_of(const combined_report_t& from)
{
    return "put together from " + counted(from.frames, "frame") + ", " +
           counted(kosc_inspect::microphones_of(from), "microphone");
}

nlohmann::ordered_json as_json(const combined_report_t& from)
{
    return {{"frames", from.frames},
            {"hearings", from.hearings},
            {"microphones", kosc_inspect::microphones_of(from)},
            {"seconds", rounded(from.seconds, 1000.0)},
            {"snr_db", rounded(from.snr_db, 10.0)}};
}

std::string json_line(const nlohmann::ordered_json& object)
{
    return object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

std::string rest_of_line(const received_item& item, bool hex, bool band)
{
    return "  ch " + std::to_string(item.message.channel) + "  " + (band ? item.message.band + "  " : "") +
           (item.delivered != nullptr ? line_of(*item.delivered, hex) : line_of(item.message, hex));
}

void add_members(nlohmann::ordered_json& object, const received_item& item)
{
    object["channel"] = item.message.channel;
    object["band"] = item.message.band;
    if (item.delivered != nullptr) {
        add(object, *item.delivered);
    } else if (item.part != nullptr) {
        add(object, *item.part);
    } else {
        add(object, item.message);
    }
}
