#include <stdexcept>
#include <string>

#include "audio/audio_file.h"
#include "audio/frame_sound.h"
#include "audio/sound_writer.h"
#include "commands/commands.h"
#include "commands/message_text.h"
#include "transfer/outgoing.h"

namespace {

outgoing to_send(const encode_options& options, const std::optional<secret_key>& key)
{
    if (options.hex) {
        const message_bytes message = message_from_hex(*options.hex);
        return key ? outgoing({KOSC_TRANSFER_BYTES, message}, key, options.rounds, 0) : outgoing(message);
    }
    if (!options.text && !options.file) {
        throw std::runtime_error("nothing to send: give a text, --hex or --file");
    }
    if (!options.file && *options.text != STANDARD_STREAM) {
        return outgoing_text(*options.text, key, options.rounds, 0);
    }
    named_file file;
    payload content{};
    if (options.file) {
        content = file_payload(*options.file, KOSC_TRANSFER_MAX_BYTES);
        take_apart(content.bytes, file);
    } else {
        file.contents = read_bytes(STANDARD_STREAM, KOSC_TRANSFER_MAX_BYTES);
    }
    std::string text = file.contents;
    drop_line_end(text);
    const bool as_text = !options.file || (text.size() <= kosc::MESSAGE_BYTES && !options.as_file);
    return as_text ? outgoing_text(text, key, options.rounds, 0) : outgoing(content, key, options.rounds, 0);
}

} // namespace

int run_encode(const encode_options& options)
{
    check_sound_name(options.output);
    const outgoing sent = to_send(options, key_of(options.key, true));
    const frame_encoder encoder(options.bands);
    const size_t pad = size_t{options.pad_ms} * kosc::SAMPLE_RATE / 1000;
    const size_t gap = size_t{options.gap_ms} * kosc::SAMPLE_RATE / 1000;
    const uint64_t slots = sent.slots(encoder.bands());
    if (2 * pad + slots * (kosc::FRAME_SAMPLES + gap) > most_samples(options.output)) {
        throw std::runtime_error("the sound is too long for a WAV file; FLAC has no such limit");
    }
    sound_file file(options.output);
    file.write(std::vector<int16_t>(pad));
    for (uint64_t slot = 0; slot < slots; ++slot) {
        file.write(encoder.encode(sent.at_once(slot, encoder.bands()), slot + 1 < slots ? gap : pad));
    }
    file.finish();
    return EXIT_DONE;
}
