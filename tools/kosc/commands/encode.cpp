#include <cstdio>
#include <stdexcept>
#include <string>

#include "audio/audio_file.h"
#include "audio/frame_sound.h"
#include "audio/sound_writer.h"
#include "commands/commands.h"
#include "commands/message_text.h"

namespace {

// The text in a file, without the line end that editors and `echo` leave behind it.
std::string read_text(const std::string& path)
{
    constexpr size_t MOST_READ = 1U << 20; // a device may have no end
    const stream_ptr stream{path == STANDARD_STREAM ? stdin : std::fopen(path.c_str(), "rb")};
    std::string text(MOST_READ, '\0');
    text.resize(stream ? std::fread(text.data(), 1, MOST_READ, stream.get()) : 0);
    if (!stream || std::ferror(stream.get()) != 0) {
        throw file_error("read", path);
    }
    if (text.size() == MOST_READ) {
        throw std::runtime_error(input_name(path) + " is longer than " + std::to_string(MOST_READ) +
                                 " bytes, the limit is " + std::to_string(kosc::MESSAGE_BYTES));
    }
    for (const char end : {'\n', '\r'}) {
        if (!text.empty() && text.back() == end) {
            text.pop_back();
        }
    }
    return text;
}

message_bytes message_to_send(const encode_options& options)
{
    if (options.hex) {
        return message_from_hex(*options.hex);
    }
    if (!options.text && !options.file) {
        throw std::runtime_error("nothing to send: give a text, --hex or --file");
    }
    const bool from_file = options.file || *options.text == STANDARD_STREAM;
    return message_from_text(from_file ? read_text(options.file.value_or(STANDARD_STREAM)) : *options.text);
}

} // namespace

int run_encode(const encode_options& options)
{
    check_sound_name(options.output);
    const size_t pad = size_t{options.pad_ms} * MODEM_SAMPLE_RATE / 1000;
    write_sound(options.output, sound_of(message_to_send(options), pad, pad, options.band));
    return EXIT_DONE;
}
