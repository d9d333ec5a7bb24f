#include "transfer/payload.h"

#include <filesystem>
#include <stdexcept>

#include "audio/sound_writer.h"
#include "commands/commands.h"
#include "commands/message_text.h"
#include "kosc_transfer/transfer.h"

namespace {

constexpr size_t LONGEST_SENT_NAME = 255; // its length is a byte

} // namespace

payload text_payload(const std::string& text) { return {KOSC_TRANSFER_TEXT, {text.begin(), text.end()}}; }

std::string read_bytes(const std::string& path, size_t limit)
{
    const bool standard = path == STANDARD_STREAM;
    const stream_ptr opened{standard ? nullptr : std::fopen(path.c_str(), "rb")};
    std::FILE* const stream = standard ? stdin : opened.get();
    std::string bytes(stream != nullptr ? limit + 1 : 0, '\0');
    bytes.resize(stream != nullptr ? std::fread(bytes.data(), 1, bytes.size(), stream) : 0);
    if (stream == nullptr || std::ferror(stream) != 0) {
        throw file_error("read", path);
    }
    if (bytes.size() > limit) {
        throw std::runtime_error(input_name(path) + " is too long: the limit is " + std::to_string(limit) + " bytes");
    }
    return bytes;
}

void drop_line_end(std::string& text)
{
    for (const char end : {'\n', '\r'}) {
        if (!text.empty() && text.back() == end) {
            text.pop_back();
        }
    }
}

payload file_payload(const std::string& path, size_t limit)
{
    std::string name = path == STANDARD_STREAM ? "" : std::filesystem::u8path(path).filename().u8string();
    if (!is_utf8(name)) { // as all names are that are sent
        name.clear();
    }
    if (name.size() > LONGEST_SENT_NAME) {
        throw std::runtime_error("the name of " + input_name(path) + " is longer than 255 bytes");
    }
    const std::string bytes = static_cast<char>(name.size()) + name + read_bytes(path, limit - 1 - name.size());
    return {KOSC_TRANSFER_FILE, {bytes.begin(), bytes.end()}};
}

bool take_apart(const std::vector<uint8_t>& bytes, named_file& file)
{
    if (bytes.empty() || bytes.size() < 1U + bytes[0]) {
        return false;
    }
    const auto contents = bytes.begin() + 1 + bytes[0];
    file = {{bytes.begin() + 1, contents}, {contents, bytes.end()}};
    return true;
}
