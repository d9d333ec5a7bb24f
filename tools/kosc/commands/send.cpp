#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "audio/audio_file.h"
#include "audio/audio_stream.h"
#include "audio/frame_sound.h"
#include "audio/sound_writer.h"
#include "commands/commands.h"
#include "commands/message_text.h"
#include "commands/stop_request.h"
#include "picture/progress_bar.h"
#include "picture/terminal.h"
#include "transfer/outgoing.h"

namespace {

// Standard input, a text a line.
class line_source {
public:
    // Reads a file to its end and goes back to where it began; throws when a line cannot be sent. Of a pipe nothing is
    // read: its lines may be yet to come.
    void check_file()
    {
        struct stat input {};
        const off_t start = ftello(stdin);
        if (fstat(STDIN_FILENO, &input) != 0 || !S_ISREG(input.st_mode) || start < 0) {
            return;
        }
        for (std::string text; next(text);) {
        }
        if (fseeko(stdin, start, SEEK_SET) != 0) {
            throw std::runtime_error("cannot read standard input twice");
        }
        number_ = 0;
    }

    // The next line that is not empty; false at the end.
    bool next(std::string& text)
    {
        std::string line;
        for (uint64_t length = 0; read_line(line, length);) {
            if (length == 0) {
                continue;
            }
            try {
                if (length > KOSC_TRANSFER_MAX_BYTES) {
                    throw std::runtime_error(too_long(length, KOSC_TRANSFER_MAX_BYTES));
                }
                check_text(line);
            } catch (const std::runtime_error& error) {
                throw std::runtime_error("line " + std::to_string(number_) + " of standard input: " + error.what());
            }
            text = std::move(line);
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
            if (line.size() <= KOSC_TRANSFER_MAX_BYTES) {
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

constexpr uint32_t USUAL_GAP_MS = 100;

size_t samples_in(uint32_t milliseconds) { return size_t{milliseconds} * kosc::SAMPLE_RATE / 1000; }

// Something to send, and what is said of it then.
struct item {
    outgoing sent;
    std::string shown;
};

// What is to be sent, one after the other; lines of standard input are taken as they come.
class item_source {
public:
    item_source(const send_options& options, const std::optional<secret_key>& key) : options_(options), key_(key)
    {
        if (!options.hex && !options.file && options.texts.empty()) {
            throw std::runtime_error("nothing to send: give a text, --hex or --file");
        }
        for (const std::string& text : options.texts) { // so that nothing is sent when one of them cannot be
            if (text == STANDARD_STREAM) {
                lines_.check_file();
            } else {
                check_text(text);
            }
        }
        if (options.hex) {
            const message_bytes message = message_from_hex(*options.hex);
            first_ =
                item{key ? outgoing({KOSC_TRANSFER_BYTES, message}, key, options.rounds, random_()) : outgoing(message),
                     shown(message)};
        } else if (options.file) {
            outgoing file = outgoing_file(*options.file, key, options.rounds);
            const std::string messages = std::to_string(file.needed());
            first_ = item{std::move(file), input_name(*options.file) + ", a transfer of " + messages + " messages"};
        }
    }

    // Nothing at the end.
    std::optional<item> next()
    {
        if (first_) {
            return std::exchange(first_, std::nullopt);
        }
        for (; position_ < options_.texts.size(); ++position_) {
            const std::string& text = options_.texts[position_];
            if (text != STANDARD_STREAM) {
                ++position_;
                return of_text(text);
            }
            if (std::string line; lines_.next(line)) {
                return of_text(line);
            }
        }
        return std::nullopt;
    }

private:
    item of_text(const std::string& text)
    {
        // Whoever sends the same text twice wants it to be heard twice.
        outgoing sent = outgoing_text(text, key_, options_.rounds, random_());
        return {std::move(sent), text.size() <= kosc::MESSAGE_BYTES ? shown(message_from_text(text)) : text};
    }

    const send_options& options_;
    const std::optional<secret_key>& key_;
    std::optional<item> first_;
    line_source lines_;
    size_t position_ = 0;
    std::random_device random_;
};

// Plays it once, or all rounds of it; false when a stop was requested.
bool play(const outgoing& sent, const send_options& options, const frame_encoder& encoder, output_stream& output,
          sending_bar& progress)
{
    const size_t gap = samples_in(options.gap_ms.value_or(sent.is_transfer() ? 0 : USUAL_GAP_MS));
    const uint64_t all = options.rounds != 0 ? sent.count() : 0;
    for (uint64_t slot = 0; slot < sent.slots(encoder.bands()); ++slot) {
        std::vector<int16_t> pcm = encoder.encode(sent.at_once(slot, encoder.bands()), gap);
        std::transform(pcm.begin(), pcm.end(), pcm.begin(),
                       [&](int16_t sample) { return static_cast<int16_t>(std::lround(sample * options.volume)); });
        if (!output.write(pcm)) {
            return false;
        }
        if (sent.is_transfer()) {
            const uint64_t done = (slot + 1) * encoder.bands();
            progress.update(all != 0 ? std::min(done, all) : done, all);
        }
    }
    return true;
}

} // namespace

int run_send(const send_options& options, bool verbose)
{
    const std::optional<secret_key> key = key_of(options.key, true);
    item_source source(options, key);
    const frame_encoder encoder(options.bands);
    catch_stop_signals(true);
    const audio_system system(verbose);
    const size_t longest = samples_in(options.gap_ms.value_or(USUAL_GAP_MS)) + kosc::SAMPLE_RATE;
    // A frame waits while the one before it is played.
    output_stream output(system.find(options.device, direction::OUTPUT), 2 * longest);
    constexpr size_t LEAD_IN = kosc::SAMPLE_RATE / 5; // many devices swallow or mangle the first tenths of a second
    output.write(std::vector<int16_t>(LEAD_IN));
    output.start();
    const auto send_all = [&] {
        while (const std::optional<item> next = source.next()) {
            sending_bar progress(system.standard_error(), !verbose);
            for (uint32_t i = 0; i < options.repeat && play(next->sent, options, encoder, output, progress); ++i) {
                progress.clear();
                write_output("sent " + next->shown + "\n");
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
