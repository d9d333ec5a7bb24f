// What the package's JavaScript calls. One instance of the module serves one receiver or the encoder: its state is the
// instance's, and goes with it. Reports and log lines leave through imported functions, in plain numbers.
#include <cstdlib>

#include <kosc/core.h>
#include <kosc/kosc.h>

#define KOSC_IMPORT(name) __attribute__((import_module("kosc"), import_name(name)))
#define KOSC_EXPORT(name) __attribute__((export_name(name)))

extern "C" {

KOSC_IMPORT("log") void kosc_js_log(const char* line);
KOSC_IMPORT("frame")
void kosc_js_frame(uint32_t channel, double sample, uint32_t decoded, uint32_t failed_crcs, const uint8_t* message,
                   double correlation, uint32_t second_look_needed, double coherence, double drift_ppm, double snr_db,
                   double evm);

} // extern "C"

namespace {

constexpr uint32_t CHANNELS = 8;

uint32_t second_look_mode = KOSC_SECOND_LOOK_OFF;
bool recordings; // what is received are whole recordings
uint32_t silence_before;
soundcomm_context_t* receivers[CHANNELS];
soundcommu_handle_t* sender;
void* block;
uint32_t block_bytes;

void report(const frame_report_t* frame, void* channel)
{
    const frame_quality_t& quality = frame->quality;
    kosc_js_frame(static_cast<uint32_t>(reinterpret_cast<uintptr_t>(channel)),
                  static_cast<double>(frame->sample) - silence_before, frame->verdict == 1 ? 1 : 0, frame->failed_crcs,
                  frame->msg, frame->correlation, quality.needed ? 1 : 0, quality.coherence, quality.drift_ppm,
                  quality.snr_db, quality.evm);
}

bool receive_silence(soundcomm_context_t* ctx)
{
    const uint32_t count = soundcomm_get_silence_around(ctx);
    auto* const silence = static_cast<int16_t*>(std::calloc(count, sizeof(int16_t)));
    result_set_t counts{};
    const bool heard = silence != nullptr && soundcomm_receive(ctx, silence, count, &counts) == 0;
    std::free(silence);
    return heard;
}

soundcomm_context_t* make_receiver(uint32_t channel)
{
    const soundcomm_cfg_t* const cfg = soundcomm_default_cfg();
    soundcomm_context_t* const ctx = soundcomm_init(cfg, cfg);
    if (ctx == nullptr ||
        !soundcomm_init_receive(ctx, soundcomm_default_rx_sync_paras(), soundcomm_default_audio_format()) ||
        (second_look_mode != KOSC_SECOND_LOOK_OFF && !soundcomm_config_second_look(ctx, second_look_mode))) {
        soundcomm_release(ctx);
        return nullptr;
    }
    soundcomm_set_frame_callback(ctx, report, reinterpret_cast<void*>(uintptr_t{channel}));
    silence_before = recordings ? soundcomm_get_silence_around(ctx) : 0;
    if (recordings && !receive_silence(ctx)) {
        soundcomm_release(ctx);
        return nullptr;
    }
    return ctx;
}

// The channel's receiver; null when memory is short.
soundcomm_context_t* receiver_of(uint32_t channel)
{
    if (receivers[channel] == nullptr) {
        receivers[channel] = make_receiver(channel);
    }
    return receivers[channel];
}

void ignore(const decode_result_t*, uint32_t) {}

} // namespace

extern "C" {

KOSC_EXPORT("version") const char* kosc_js_version() { return KOSC_VERSION; }

KOSC_EXPORT("messageBytes") uint32_t kosc_js_message_bytes() { return soundcomm_default_cfg()->msg_byte_len; }

KOSC_EXPORT("frameSamples") uint32_t kosc_js_frame_samples()
{
    return soundcomm_get_frame_length_from_cfg(soundcomm_default_cfg());
}

KOSC_EXPORT("channels") uint32_t kosc_js_channels() { return CHANNELS; }

// To be called first; lines reach the host from `log_lines` on, 0 for none.
KOSC_EXPORT("configure") void kosc_js_configure(uint32_t log_lines, bool second_look, bool recording)
{
    soundcomm_set_log_level(log_lines);
    soundcomm_config_log_time(0);
    soundcomm_set_log_callback(kosc_js_log);
    recordings = recording;
    second_look_mode = second_look ? KOSC_SECOND_LOOK_MEASURE : KOSC_SECOND_LOOK_OFF;
}

// A buffer for what goes in or comes out, valid until the next call; null when memory is short.
KOSC_EXPORT("room") void* kosc_js_room(uint32_t bytes)
{
    if (bytes > block_bytes) {
        std::free(block);
        block = std::malloc(bytes);
        block_bytes = block != nullptr ? bytes : 0;
    }
    return block;
}

// False when memory is short.
KOSC_EXPORT("encode") bool kosc_js_encode(const uint8_t* message, int16_t* frame)
{
    if (sender == nullptr) {
        sender = ko_soundcommu_init(ignore, ignore);
    }
    const auto bytes = static_cast<uint32_t>(kosc_js_frame_samples() * sizeof(int16_t));
    return sender != nullptr && ko_soundcommu_encode(sender, message, kosc_js_message_bytes(), frame, bytes) == 0;
}

// False when memory is short.
KOSC_EXPORT("receive") bool kosc_js_receive(uint32_t channel, const int16_t* samples, uint32_t count)
{
    soundcomm_context_t* const ctx = receiver_of(channel);
    result_set_t counts{};
    return ctx != nullptr && soundcomm_receive(ctx, samples, count, &counts) == 0;
}

// The same for the silence behind a recording.
KOSC_EXPORT("finish") bool kosc_js_finish(uint32_t channel)
{
    soundcomm_context_t* const ctx = receiver_of(channel);
    return ctx != nullptr && receive_silence(ctx);
}

} // extern "C"
