// What the package's JavaScript calls. One instance of the module serves one receiver or the encoder: its state is the
// instance's, and goes with it. Reports and log lines leave through imported functions, in plain numbers.
#include <cstdlib>

#include <kosc/core.h>
#include <kosc/kosc.h>

#define KOSC_IMPORT(name) __attribute__((import_module("kosc"), import_name(name)))
#define KOSC_EXPORT(name) __attribute__((export_name(name)))

extern "C" {

KOSC_IMPORT("log") void kosc_js_log(const char* line);
KOSC_IMPORT("band")
void kosc_js_band(const char* name, const char* use, uint32_t first_subcarrier, double low_hz, double high_hz);
KOSC_IMPORT("frame")
void kosc_js_frame(uint32_t channel, uint32_t band, double sample, uint32_t decoded, uint32_t failed_crcs,
                   const uint8_t* message, double correlation, uint32_t second_look_needed, double coherence,
                   double drift_ppm, double snr_db, double evm);
// Told before its frame, where that is a message which was put together.
KOSC_IMPORT("combined")
void kosc_js_combined(uint32_t frames, uint32_t hearings, uint32_t microphones, double snr_db, double newest_snr_db,
                      double drift_ppm, double seconds);

} // extern "C"

namespace {

constexpr uint32_t CHANNELS = 8;
constexpr uint32_t MOST_BANDS = 16; // listened to at once
constexpr uint32_t MICROPHONES = 2; // the first channels, where they are combined together
constexpr uint32_t PIECE = 4096;    // samples of silence heard at a time: the microphones listen in turns

struct place {
    uint32_t channel;
    uint32_t band; // counted as listenOn() was called
};

struct listener {
    place at;
    soundcomm_context_t* ctx;
};

uint32_t second_look_mode = KOSC_SECOND_LOOK_OFF;
uint32_t combining_mode = KOSC_COMBINING_OFF;
uint32_t crowd_mode = KOSC_CROWD_OFF;
bool recordings; // what is received are whole recordings
uint32_t silence_before;
uint32_t first_subcarriers[MOST_BANDS];
uint32_t band_count;
listener listeners[CHANNELS][MOST_BANDS];
soundcommu_handle_t* sender;
uint32_t sender_band;
void* block;
uint32_t block_bytes;

void report(const frame_report_t* frame, void* user)
{
    const frame_quality_t& quality = frame->quality;
    const auto* const at = static_cast<const place*>(user);
    const combined_report_t* const combined = frame->combined;
    if (combined != nullptr) {
        kosc_js_combined(combined->frames, combined->hearings,
                         static_cast<uint32_t>(__builtin_popcount(combined->channels)), combined->snr_db,
                         combined->newest_snr_db, combined->drift_ppm, combined->seconds);
    }
    kosc_js_frame(at->channel, at->band, static_cast<double>(frame->sample) - silence_before,
                  frame->verdict == 1 ? 1 : 0, frame->failed_crcs, frame->msg, frame->correlation,
                  quality.needed ? 1 : 0, quality.coherence, quality.drift_ppm, quality.snr_db, quality.evm);
}

// Channels from `first` on that are one receiver.
struct ears {
    uint32_t first;
    uint32_t count;
};

ears ears_of(uint32_t channel)
{
    const bool together = combining_mode == KOSC_COMBINING_TOGETHER && channel < MICROPHONES;
    return together ? ears{0, MICROPHONES} : ears{channel, 1};
}

// Two frames, in turns.
bool receive_silence(ears channels, uint32_t band)
{
    const int16_t silence[PIECE] = {};
    bool heard = true;
    for (uint32_t left = soundcomm_get_silence_around(listeners[channels.first][band].ctx); heard && left > 0;) {
        const uint32_t count = left < PIECE ? left : PIECE;
        for (uint32_t c = 0; heard && c < channels.count; ++c) {
            result_set_t counts{};
            heard = soundcomm_receive(listeners[channels.first + c][band].ctx, silence, count, &counts) == 0;
        }
        left -= count;
    }
    return heard;
}

soundcomm_context_t* make_receiver(place* at)
{
    soundcomm_cfg_t cfg;
    soundcomm_context_t* const ctx =
        soundcomm_cfg_for_band(first_subcarriers[at->band], &cfg) ? soundcomm_init(&cfg, &cfg) : nullptr;
    if (ctx == nullptr ||
        !soundcomm_init_receive(ctx, soundcomm_default_rx_sync_paras(), soundcomm_default_audio_format()) ||
        (second_look_mode != KOSC_SECOND_LOOK_OFF && !soundcomm_config_second_look(ctx, second_look_mode)) ||
        (crowd_mode != KOSC_CROWD_OFF && !soundcomm_config_crowd(ctx, crowd_mode))) {
        soundcomm_release(ctx);
        return nullptr;
    }
    soundcomm_set_frame_callback(ctx, report, at);
    silence_before = recordings ? soundcomm_get_silence_around(ctx) : 0;
    return ctx;
}

bool combine(ears channels, uint32_t band)
{
    soundcomm_context_t* const first = listeners[channels.first][band].ctx;
    return combining_mode == KOSC_COMBINING_OFF ||
           (channels.count == 1
                ? soundcomm_config_combining(first, nullptr, KOSC_COMBINING_EACH)
                : soundcomm_config_combining(first, listeners[channels.first + 1][band].ctx, KOSC_COMBINING_TOGETHER));
}

bool make_receivers(ears channels, uint32_t band)
{
    bool made = true;
    for (uint32_t c = 0; made && c < channels.count; ++c) {
        listener& each = listeners[channels.first + c][band];
        each.at = {channels.first + c, band};
        each.ctx = make_receiver(&each.at);
        made = each.ctx != nullptr;
    }
    return made && combine(channels, band) && (!recordings || receive_silence(channels, band));
}

// Has the channel's receivers, one a band, and those of the channel that it is combined with; false when memory is
// short.
bool prepare(uint32_t channel)
{
    const ears channels = ears_of(channel);
    for (uint32_t band = 0; band < band_count; ++band) {
        if (listeners[channel][band].ctx == nullptr && !make_receivers(channels, band)) {
            for (uint32_t c = 0; c < channels.count; ++c) { // all or none
                listener& each = listeners[channels.first + c][band];
                soundcomm_release(each.ctx);
                each.ctx = nullptr;
            }
            return false;
        }
    }
    return true;
}

// The sender's handle, made anew for another band; null when memory is short.
soundcommu_handle_t* sender_of(uint32_t first_subcarrier)
{
    if (sender == nullptr || sender_band != first_subcarrier) {
        ko_soundcommu_release(sender);
        ko_soundcommu_options_t options;
        ko_soundcommu_default_options(&options, sizeof options);
        options.first_subcarrier = sender_band = first_subcarrier;
        sender = ko_soundcommu_init_with(&options);
    }
    return sender;
}

void tell(const ko_soundcommu_band_t& band)
{
    kosc_js_band(band.name, band.use, band.first_subcarrier, band.low_hz, band.high_hz);
}

} // namespace

extern "C" {

KOSC_EXPORT("version") const char* kosc_js_version() { return KOSC_VERSION; }

KOSC_EXPORT("messageBytes") uint32_t kosc_js_message_bytes() { return soundcomm_default_cfg()->msg_byte_len; }

KOSC_EXPORT("frameSamples") uint32_t kosc_js_frame_samples()
{
    return soundcomm_get_frame_length_from_cfg(soundcomm_default_cfg());
}

KOSC_EXPORT("channels") uint32_t kosc_js_channels() { return CHANNELS; }

KOSC_EXPORT("mostBands") uint32_t kosc_js_most_bands() { return MOST_BANDS; }

KOSC_EXPORT("firstSubcarrier") uint32_t kosc_js_first_subcarrier()
{
    return soundcomm_default_cfg()->ofdm_cfg.sc_start_idx;
}

// Tells the named band number `index`; false behind the last.
KOSC_EXPORT("band") bool kosc_js_get_band(uint32_t index)
{
    const ko_soundcommu_band_t* const band = ko_soundcommu_get_band(index);
    if (band != nullptr) {
        tell(*band);
    }
    return band != nullptr;
}

// Tells the band that `text` means; false, with a log line, when it means none.
KOSC_EXPORT("findBand") bool kosc_js_find_band(const char* text)
{
    ko_soundcommu_band_t band;
    const bool found = ko_soundcommu_find_band(text, &band) == 0;
    if (found) {
        tell(band);
    }
    return found;
}

// To be called first; lines reach the host from `log_lines` on, 0 for none.
KOSC_EXPORT("configure")
void kosc_js_configure(uint32_t log_lines, bool second_look, bool recording, uint32_t combining, bool crowd)
{
    soundcomm_set_log_level(log_lines);
    soundcomm_config_log_time(0);
    soundcomm_set_log_callback(kosc_js_log);
    recordings = recording;
    combining_mode = combining;
    crowd_mode = crowd ? KOSC_CROWD_CANCEL : KOSC_CROWD_OFF;
    second_look_mode = second_look ? KOSC_SECOND_LOOK_MEASURE : KOSC_SECOND_LOOK_OFF;
}

// Once for each band that a receiver listens to, before it receives.
KOSC_EXPORT("listenOn") void kosc_js_listen_on(uint32_t first_subcarrier)
{
    if (band_count < MOST_BANDS) {
        first_subcarriers[band_count++] = first_subcarrier;
    }
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
KOSC_EXPORT("encode") bool kosc_js_encode(uint32_t first_subcarrier, const uint8_t* message, int16_t* frame)
{
    soundcommu_handle_t* const handle = sender_of(first_subcarrier);
    const auto bytes = static_cast<uint32_t>(kosc_js_frame_samples() * sizeof(int16_t));
    return handle != nullptr && ko_soundcommu_encode(handle, message, kosc_js_message_bytes(), frame, bytes) == 0;
}

// False when memory is short.
KOSC_EXPORT("receive") bool kosc_js_receive(uint32_t channel, const int16_t* samples, uint32_t count)
{
    bool heard = prepare(channel);
    for (uint32_t band = 0; heard && band < band_count; ++band) {
        result_set_t counts{};
        heard = soundcomm_receive(listeners[channel][band].ctx, samples, count, &counts) == 0;
    }
    return heard;
}

// The same for the silence behind a recording, on both channels where two are combined.
KOSC_EXPORT("finish") bool kosc_js_finish(uint32_t channel)
{
    bool heard = prepare(channel);
    for (uint32_t band = 0; heard && band < band_count; ++band) {
        heard = receive_silence(ears_of(channel), band);
    }
    return heard;
}

} // extern "C"
