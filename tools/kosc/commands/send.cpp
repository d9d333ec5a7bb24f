#include <sys/stat.h>
#include <unistd.h>

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
#include "picture/terminal.h"

namespace {

// Standard input, a message a line.
class line_source {
public:
    // Reads a file to its end and goes back to where it began; throws when a line is no message. Of a pipe nothing is
    // read: its lines may be yet to come.
    void check_file()
    {
        struct stat input {};
        const off_t start = ftello(stdin);
        if (fstat(STDIN_FILENO, &input) != 0 || !S_ISREG(input.st_mode) || start < 0) {
            return;
        }
        for (message_bytes message; next(message);) {
        }
        if (fseeko(stdin, start, SEEK_SET) != 0) {
            throw std::runtime_error("cannot read standard input twice");
        }
        number_ = 0;
    }

    // The next line that is not empty; false at the end.
    bool next(message_bytes& message)
    {
        std::string line;
        for (uint64_t length = 0; read_line(line, length);) {
            if (length == 0) {
                continue;
            }
            try {
                if (length > kosc::MESSAGE_BYTES) {
                    throw std::runtime_error(too_long(length, kosc::MESSAGE_BYTES));
                }
                message = message_from_text(line);
            } catch (const std::runtime_error& error) {
                throw std::runtime_error("line " + std::to_string(number_) + " of standard input: " + error.what());
            }
            return true;
        }
        return false;
    }

private:
    // A line without its end, of which no more is kept than can be sent, and its length.
    bool read_line(std::string& line, uint64_t& length)
    {
        line.clear();
        length = 0;
        bool carriage_return = false; // at the end it is no part of the line
        int letter = EOF;
        while (!stop_requested() && (letter = std::getchar()) != EOF && letter != '\n') {
            ++length;
            carriage_return = letter == '\r';
            if (line.size() <= kosc::MESSAGE_BYTES) {
                line.push_back(static_cast<char>(letter));
            }
        }
        if (stop_requested() || (letter == EOF && length == 0)) {
            return false;
        }
        ++number_;
        if (carriage_return) {
            --length;
            line.resize(std::min<size_t>(line.size(), length));
        }
        return true;
    }

    uint64_t number_ = 0; // of the line that was read last
};

// What is to be sent, one after the other; lines of standard input are taken as they come.
class message_source {
public:
    explicit message_source(const send_options& options) : hex_(options.hex), texts_(options.texts)
    {
        if (!hex_ && texts_.empty()) {
            throw std::runtime_error("nothing to send: give a text or --hex");
        }
        for (const std::string& text : texts_) { // so that nothing is sent when one of them cannot be
            if (text == STANDARD_STREAM) {
                lines_.check_file();
            } else {
                message_from_text(text);
            }
        }
    }

    // False at the end.
    bool next(message_bytes& message)
    {
        if (hex_) {
            message = message_from_hex(*hex_);
            hex_.reset();
            return true;
        }
        for (; position_ < texts_.size(); ++position_) {
            if (texts_[position_] != STANDARD_STREAM) {
                message = message_from_text(texts_[position_++]);
                return true;
            }
            if (lines_.next(message)) {
                return true;
            }
        }
        return false;
    }

private:
    std::optional<std::string> hex_;
    std::vector<std::string> texts_;
    line_source lines_;
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
            std::vector<int16_t> pcm = sound_of(message, 0, gap, options.band);
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
