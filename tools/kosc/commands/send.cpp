#include <algorithm>
#include <cmath>
#include <cstdio>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "audio/audio_file.h"
#include "audio/audio_stream.h"
#include "audio/frame_sound.h"
#include "commands/commands.h"
#include "commands/message_text.h"
#include "commands/stop_request.h"
#include "kosc/core.h"
#include "picture/terminal.h"

namespace {

// What is to be sent, one after the other; lines of standard input are taken as they come.
class message_source {
public:
    explicit message_source(const send_options& options)
        : hex_(options.hex), texts_(options.texts), size_(soundcomm_default_cfg()->msg_byte_len)
    {
        if (!hex_ && texts_.empty()) {
            throw std::runtime_error("nothing to send: give a text or --hex");
        }
        for (const std::string& text : texts_) { // so that nothing is sent when one of them cannot be
            text == STANDARD_STREAM ? message_bytes{} : message_from_text(text, size_);
        }
    }

    // False at the end.
    bool next(message_bytes& message)
    {
        if (hex_) {
            message = message_from_hex(*hex_, size_);
            hex_.reset();
            return true;
        }
        for (; position_ < texts_.size(); ++position_) {
            if (texts_[position_] != STANDARD_STREAM) {
                message = message_from_text(texts_[position_++], size_);
                return true;
            }
            if (next_line(message)) {
                return true;
            }
        }
        return false;
    }

private:
    bool next_line(message_bytes& message)
    {
        constexpr size_t LONGEST_SHOWN = 1U << 12;
        std::string line;
        while (!stop_requested()) {
            const int letter = std::getchar();
            if (letter != EOF && letter != '\n') {
                line.size() < LONGEST_SHOWN ? line.push_back(static_cast<char>(letter)) : void();
                continue;
            }
            if (!line.empty() && line.back() == '\r') {
                line.pop_back();
            }
            if (!line.empty()) {
                message = message_from_text(line, size_);
                return true;
            }
            if (letter == EOF) {
                return false;
            }
        }
        return false;
    }

    std::optional<std::string> hex_;
    std::vector<std::string> texts_;
    size_t size_;
    size_t position_ = 0;
};

std::string shown(const message_bytes& message) { return text_of_message(message).value_or(hex_of_message(message)); }

} // namespace

int run_send(const send_options& options, bool verbose)
{
    message_source source(options);
    catch_stop_signals(true);
    const audio_system system(verbose);
    const size_t gap = size_t{options.gap_ms} * MODEM_SAMPLE_RATE / 1000;
    // A frame waits while the one before it is played.
    output_stream output(system.find(options.device, direction::OUTPUT), 2 * (gap + MODEM_SAMPLE_RATE));
    constexpr size_t LEAD_IN = MODEM_SAMPLE_RATE / 5; // many devices swallow or mangle the first tenths of a second
    output.write(std::vector<int16_t>(LEAD_IN));
    output.start();
    const auto send_all = [&] {
        message_bytes message;
        while (source.next(message)) {
            std::vector<int16_t> pcm = sound_of(message, 0, gap);
            std::transform(pcm.begin(), pcm.end(), pcm.begin(),
                           [&](int16_t sample) { return static_cast<int16_t>(std::lround(sample * options.volume)); });
            for (uint32_t i = 0; i < options.repeat && output.write(pcm); ++i) {
                write_output("sent " + shown(message) + "\n");
            }
        }
    };
    try {
        send_all();
    } catch (const std::runtime_error&) {
        output.drain(); // what was good is still sent
        throw;
    }
    output.drain();
    return EXIT_DONE;
}
