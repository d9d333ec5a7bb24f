/**
 * @file
 * C++17 over the C interface: owners for what the library hands out, and an encoder and a receiver ready to use.
 *
 * Header only, over kosc/core.h. Nothing here throws or needs exceptions or RTTI; what can fail returns an error or a
 * result, and the library's log says more. Only where the C++ containers find no memory does the program end the way
 * its runtime has it. Objects move and are not copied; different objects may be used on different threads
 * (kosc/kosc.h tells about the logger).
 */
#ifndef KOSC_KOSC_HPP
#define KOSC_KOSC_HPP

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "kosc/core.h"

namespace kosc {

// The built-in modem in numbers.
constexpr uint32_t SAMPLE_RATE = 48000;      /**< Hz */
constexpr uint32_t MESSAGE_BYTES = 28;       /**< bytes a message */
constexpr uint32_t FRAME_SAMPLES = 11520;    /**< samples a frame */
constexpr uint32_t DEFAULT_SUBCARRIER = 384; /**< first one of the band of ko_soundcommu_init(), near-ultrasonic */

/** Calls the C function that releases a record. */
template <auto Release> struct released_by {
    template <typename T> void operator()(T* object) const noexcept { Release(object); } /**< for std::unique_ptr */
};

/** Owns a record of the library: owner<conv_code_t, conv_code_release>. Null where the library returned null. */
template <typename T, auto Release> using owner = std::unique_ptr<T, released_by<Release>>;

using handle_ptr = owner<soundcommu_handle_t, ko_soundcommu_release>;      /**< of kosc/kosc.h */
using context_ptr = owner<soundcomm_context_t, soundcomm_release>;         /**< of kosc/context.h */
using container_ptr = owner<data_container, data_container_free>;          /**< of kosc/sample_buffer.h */
using filter_ptr = owner<butterworth_bandpass, free_butterworth_bandpass>; /**< of kosc/filter.h */
using code_ptr = owner<conv_code_t, conv_code_release>;                    /**< of kosc/conv_code.h */
using soft_viterbi_ptr = owner<soft_viterbi_t, soft_viterbi_free>;         /**< of kosc/soft_viterbi.h */
using punch_ptr = owner<punch_template_t, free_punch_template>;            /**< of kosc/puncture.h */
using pattern_ptr = owner<phase_pattern, free_phase_pattern>;              /**< of kosc/papr.h */
using smoother_ptr = owner<channel_smoother_t, channel_smoother_free>;     /**< of kosc/channel_smoother.h */
using drift_search_ptr = owner<drift_search_t, drift_search_free>;         /**< of kosc/drift.h */
using queue_ptr = owner<vector, vector_free>;                              /**< of kosc/growable_vector.h */
using bytes_ptr = owner<kom_vector_uint8, kom_vector_uint8_free>;          /**< of kosc/vector.h */
using doubles_ptr = owner<kom_vector, kom_vector_free>;                    /**< of kosc/vector.h */
using complex_ptr = owner<kom_vector_complex, kom_vector_complex_free>;    /**< of kosc/vector.h */

/**
 * A context of the core, prepared to receive one channel as ko_soundcommu_init() prepares its own.
 *
 * @param second_look  KOSC_SECOND_LOOK_...
 * @param cfg          of both directions
 * @param crowd        KOSC_CROWD_...; needs the second look
 * @return null where one of the steps failed, with its message
 */
inline context_ptr make_receiving_context(uint32_t second_look = KOSC_SECOND_LOOK_OFF,
                                          const soundcomm_cfg_t& cfg = *soundcomm_default_cfg(),
                                          uint32_t crowd = KOSC_CROWD_OFF)
{
    context_ptr context{soundcomm_init(&cfg, &cfg)};
    const bool ready =
        context &&
        soundcomm_init_receive(context.get(), soundcomm_default_rx_sync_paras(), soundcomm_default_audio_format()) &&
        soundcomm_config_second_look(context.get(), second_look) && soundcomm_config_crowd(context.get(), crowd);
    return ready ? std::move(context) : nullptr;
}

/** Why something could not be done. */
enum class error {
    none,
    band,    /**< the band does not lie between 250 and 23500 Hz */
    memory,  /**< memory is short */
    length,  /**< a message is longer than MESSAGE_BYTES, or a receiver has no channels */
    channel, /**< the receiver has no such channel */
    modem    /**< a step of the modem failed, for want of memory or worse; the log says which */
};

/** The error in a few words of English, static. */
constexpr const char* describe(error e)
{
    switch (e) {
    case error::none:
        return "no error";
    case error::band:
        return "the band does not lie between 250 and 23500 Hz";
    case error::memory:
        return "not enough memory";
    case error::length:
        return "a message has at most 28 bytes, and a receiver at least one channel";
    case error::channel:
        return "the receiver has no such channel";
    default:
        return "the modem failed";
    }
}

/** A value, or why there is none. */
template <typename T> class result {
public:
    result(T value) : value_{std::move(value)} {} /**< done */
    result(error why) : why_{why} {}              /**< not done */

    /** Whether there is a value; only then it may be used. */
    explicit operator bool() const { return value_.has_value(); }
    T& operator*() { return *value_; }               /**< the value */
    const T& operator*() const { return *value_; }   /**< the value */
    T* operator->() { return &*value_; }             /**< the value */
    const T* operator->() const { return &*value_; } /**< the value */
    /** error::none when there is a value. */
    error why() const { return why_; }

private:
    std::optional<T> value_;
    error why_ = error::none;
};

/** Turns messages into sound. */
class encoder {
public:
    /** An encoder for the band that begins with that subcarrier; error::band, error::memory. */
    static result<encoder> make(uint32_t first_subcarrier = DEFAULT_SUBCARRIER)
    {
        soundcomm_cfg_t cfg;
        if (!soundcomm_cfg_for_band(first_subcarrier, &cfg)) {
            return error::band;
        }
        ko_soundcommu_options_t options;
        ko_soundcommu_default_options(&options, sizeof options);
        options.first_subcarrier = first_subcarrier;
        encoder made;
        made.handle_.reset(ko_soundcommu_init_with(&options));
        return made.handle_ ? result<encoder>{std::move(made)} : error::memory;
    }

    /**
     * One frame, FRAME_SAMPLES of 16-bit mono PCM at SAMPLE_RATE, that carries up to MESSAGE_BYTES bytes, padded with
     * zeros; error::length, error::modem.
     */
    result<std::vector<int16_t>> encode(std::string_view message) const
    {
        if (message.size() > MESSAGE_BYTES) {
            return error::length;
        }
        uint8_t bytes[MESSAGE_BYTES] = {};
        std::copy(message.begin(), message.end(), bytes);
        std::vector<int16_t> sound(FRAME_SAMPLES);
        const auto size = static_cast<uint32_t>(sound.size() * sizeof sound[0]);
        return ko_soundcommu_encode(handle_.get(), bytes, MESSAGE_BYTES, sound.data(), size) == 0
                   ? result<std::vector<int16_t>>{std::move(sound)}
                   : error::modem;
    }

private:
    encoder() = default;

    handle_ptr handle_;
};

/** A frame that a receiver found; valid during the call that hands it out. */
struct heard {
    uint32_t channel;             /**< counted from 0 */
    int64_t sample;               /**< the frame's first, counted from the first one pushed; below 0 when cut off */
    const frame_report_t& report; /**< correlation, failed CRCs, samples, what the second look measured */

    double seconds() const { return static_cast<double>(sample) / SAMPLE_RATE; } /**< where `sample` lies */
    /** The message with its padding; of a frame that failed, what was read instead, or nothing. */
    std::string_view bytes() const
    {
        return report.msg == nullptr ? std::string_view{}
                                     : std::string_view{reinterpret_cast<const char*>(report.msg), report.msg_len};
    }
    /** The message without the zeros at its end. */
    std::string_view text() const
    {
        const size_t last = bytes().find_last_not_of('\0');
        return bytes().substr(0, last == std::string_view::npos ? 0 : last + 1);
    }
};

/** How receiver::make() builds a receiver. */
struct receiver_settings {
    uint32_t channels = 1;                          /**< independent ones */
    uint32_t first_subcarrier = DEFAULT_SUBCARRIER; /**< 6 to 438 */
    uint32_t second_look = KOSC_SECOND_LOOK_OFF;    /**< KOSC_SECOND_LOOK_... */
    /** The sound begins somewhere, with a file or a cut: the receiver hears silence before it, so that a frame is found
     * which lacks its first samples. */
    bool cut = false;
    /** KOSC_COMBINING_...: repeats are added up, with KOSC_COMBINING_TOGETHER those of two channels; what is delivered
     * so has `report.combined`. */
    uint32_t combining = KOSC_COMBINING_OFF;
    /** KOSC_CROWD_...: hears frames that overlap, in the order in which they could be decoded; needs second_look. */
    uint32_t crowd = KOSC_CROWD_OFF;
};

/**
 * Hears messages in blocks of any size, on channels that are independent: a message heard by two comes twice.
 *
 * push() and finish() hand out each message that ends in the block, channel by channel, by `on_message(const heard&)`,
 * and, where it is given, each place that sounded like a frame and could not be read by `on_failed(const heard&)`,
 * once. Neither may throw, nor call the receiver. A message is certain once the search window behind its frame is full,
 * so it comes up to two frames (half a second) late, and with the last ones finish() is needed.
 */
class receiver {
public:
    /** error::length for no channels, error::channel for other than two that are to be combined together, error::band,
     * error::memory, also where combining is not one of its modes, error::modem for a crowd that is none
     * of its modes or lacks the second look. */
    static result<receiver> make(const receiver_settings& settings = {})
    {
        soundcomm_cfg_t cfg;
        if (settings.channels == 0) {
            return error::length;
        }
        if (settings.combining == KOSC_COMBINING_TOGETHER && settings.channels != 2) {
            return error::channel;
        }
        if (!soundcomm_cfg_for_band(settings.first_subcarrier, &cfg)) {
            return error::band;
        }
        if (settings.crowd > KOSC_CROWD_CANCEL || (settings.crowd != 0 && settings.second_look == 0)) {
            return error::modem;
        }
        receiver made;
        made.channels_.resize(settings.channels);
        for (channel_state& channel : made.channels_) {
            channel.context = make_receiving_context(settings.second_look, cfg, settings.crowd);
            if (!channel.context) {
                return error::memory;
            }
        }
        if (!made.combine(settings.combining)) {
            return error::memory;
        }
        made.block_.resize(settings.channels > 1 ? PIECE : 0);
        if (settings.cut && made.push_silence(FRAME_SAMPLES, nothing, nothing) != error::none) {
            return error::modem;
        }
        made.lead_ = settings.cut ? FRAME_SAMPLES : 0;
        return made;
    }

    /** Hears `count` samples of each channel, interleaved; error::modem. */
    template <typename OnMessage, typename OnFailed = void (*)(const heard&)>
    error push(const int16_t* interleaved, size_t count, OnMessage&& on_message, OnFailed&& on_failed = nothing)
    {
        const size_t stride = channels_.size();
        if (stride == 1) {
            return push_channel(0, interleaved, count, on_message, on_failed);
        }
        error worst = error::none;
        for (size_t done = 0; done < count && worst == error::none; done += PIECE) {
            const size_t piece = std::min(count - done, PIECE);
            for (uint32_t c = 0; c < stride && worst == error::none; ++c) {
                for (size_t i = 0; i < piece; ++i) {
                    block_[i] = interleaved[(done + i) * stride + c];
                }
                worst = push_channel(c, block_.data(), piece, on_message, on_failed);
            }
        }
        return worst;
    }

    /** Hears `count` samples of one channel; the channels keep their own time. error::channel, error::modem. */
    template <typename OnMessage, typename OnFailed = void (*)(const heard&)>
    error push_channel(uint32_t channel, const int16_t* samples, size_t count, OnMessage&& on_message,
                       OnFailed&& on_failed = nothing)
    {
        if (channel >= channels_.size()) {
            return error::channel;
        }
        channel_state& state = channels_[channel];
        auto on_frame = [&](const frame_report_t& report) {
            constexpr uint32_t DECODED = 1;
            const heard frame{channel, static_cast<int64_t>(report.sample) - lead_, report};
            if (report.verdict == DECODED) {
                on_message(frame);
            } else if (std::exchange(state.last_failed, report.sample) != report.sample) { // search windows overlap
                on_failed(frame);
            }
        };
        using callable = decltype(on_frame);
        soundcomm_set_frame_callback(
            state.context.get(),
            [](const frame_report_t* report, void* user) { (*static_cast<callable*>(user))(*report); }, &on_frame);
        error worst = error::none;
        for (size_t done = 0; done < count && worst == error::none; done += PIECE) {
            const auto piece = static_cast<uint32_t>(std::min(count - done, PIECE));
            result_set_t counts{}; // messages come with their reports
            worst = soundcomm_receive(state.context.get(), samples + done, piece, &counts) == 0 ? worst : error::modem;
        }
        soundcomm_set_frame_callback(state.context.get(), nullptr, nullptr);
        return worst;
    }

    /** Hears the silence behind the last block, so that a frame which ends with it is found too; error::modem. */
    template <typename OnMessage, typename OnFailed = void (*)(const heard&)>
    error finish(OnMessage&& on_message, OnFailed&& on_failed = nothing)
    {
        return push_silence(2 * FRAME_SAMPLES, on_message, on_failed);
    }

    uint32_t channels() const { return static_cast<uint32_t>(channels_.size()); } /**< their number */

    /** A channel's modem, owned by the receiver, for what the core tells: configuration, buffers. Counted from 0. */
    const soundcomm_context_t* context(uint32_t channel) const { return channels_[channel].context.get(); }

private:
    static constexpr size_t PIECE = 4096; // samples a channel at a time

    struct channel_state {
        context_ptr context;
        uint64_t last_failed = UINT64_MAX;
    };

    receiver() = default;
    static void nothing(const heard&) {}

    bool combine(uint32_t mode)
    {
        if (mode == KOSC_COMBINING_TOGETHER) {
            return soundcomm_config_combining(channels_[0].context.get(), channels_[1].context.get(), mode);
        }
        return mode == KOSC_COMBINING_OFF ||
               std::all_of(channels_.begin(), channels_.end(), [&](const channel_state& channel) {
                   return soundcomm_config_combining(channel.context.get(), nullptr, mode);
               });
    }

    template <typename OnMessage, typename OnFailed>
    error push_silence(size_t count, OnMessage&& on_message, OnFailed&& on_failed)
    {
        const std::vector<int16_t> silence(std::min(count, PIECE));
        error worst = error::none;
        for (size_t done = 0; done < count; done += PIECE) {
            for (uint32_t c = 0; c < channels_.size() && worst == error::none; ++c) {
                worst = push_channel(c, silence.data(), std::min(count - done, PIECE), on_message, on_failed);
            }
        }
        return worst;
    }

    std::vector<channel_state> channels_;
    std::vector<int16_t> block_; // one channel of what is interleaved
    int64_t lead_ = 0;           // samples heard before the first pushed
};

} // namespace kosc

#endif
