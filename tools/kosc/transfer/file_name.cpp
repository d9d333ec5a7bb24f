#include "transfer/file_name.h"

#include "commands/message_text.h"

namespace {

constexpr size_t LONGEST_NAME = 255; // of Linux's file systems

// The length of a character of UTF-8 that begins with `lead`.
size_t length_of(char lead)
{
    const auto byte = static_cast<uint8_t>(lead);
    return byte < 0x80 ? 1 : byte < 0xE0 ? 2 : byte < 0xF0 ? 3 : 4;
}

// Marks that turn the direction of what follows or are not seen: a name could seem to end differently.
bool deceives(const std::string& character)
{
    const auto between = [&](const char* low, const char* high) { return character >= low && character <= high; };
    return between("\u200B", "\u200F") || between("\u2028", "\u202E") || between("\u2060", "\u206F") ||
           character == "\u061C" || character == "\uFEFF";
}

} // namespace

std::string safe_name(const std::string& sent, const std::string& fallback)
{
    if (!is_utf8(sent)) {
        return fallback;
    }
    std::string name;
    for (size_t i = 0; i < sent.size();) {
        const std::string character = sent.substr(i, length_of(sent[i]));
        i += character.size();
        if (character == "/" || character == "\\") {
            name.clear();
        } else {
            name += has_controls(character) || deceives(character) ? "_" : character;
        }
    }
    if (name.find_first_not_of(" .") == std::string::npos) {
        return fallback;
    }
    if (name[0] == '.' || name[0] == '-') { // hidden files, and what commands take for options
        name[0] = '_';
    }
    return name;
}

std::string numbered_name(const std::string& name, uint32_t number)
{
    if (number == 1) {
        return name;
    }
    const size_t dot = name.rfind('.');
    const std::string ending = dot == std::string::npos ? "" : name.substr(dot);
    const std::string added = "-" + std::to_string(number) + ending;
    std::string stem = name.substr(0, name.size() - ending.size());
    while (stem.size() + added.size() > LONGEST_NAME && !stem.empty()) {
        stem.pop_back();
    }
    return stem + added;
}
