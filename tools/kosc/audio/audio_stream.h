// Streams of sound from and to devices.
//
// A stream's callback runs on the device's own thread and only copies between the device and a sample_ring; everything
// else happens on the thread that reads or writes the stream.
#ifndef KOSC_TOOL_AUDIO_STREAM_H
#define KOSC_TOOL_AUDIO_STREAM_H

#include <portaudio.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "audio/audio_device.h"
#include "audio/sample_ring.h"
#include "audio/sound_bands.h"
#include "resampler.h"

// What both kinds of streams have in common: a device at work.
class audio_stream {
public:
    audio_stream(const audio_stream&) = delete;
    audio_stream& operator=(const audio_stream&) = delete;

    // Sound flows from now on. Throws when the device refuses.
    void start();
    uint32_t rate() const { return rate_; }
    // When the callback first ran.
    std::chrono::steady_clock::time_point started() const;

protected:
    audio_stream(audio_device device, direction way);
    ~audio_stream() = default;
    void open(uint32_t channels, uint32_t rate, PaSampleFormat format, PaStreamCallback* callback, void* self);
    // What the callback uses must not be destroyed before.
    void close();
    // Throws when the device is gone: the stream has ended, or its callback has not run for some seconds.
    void check_alive();
    void note_callback(); // the callback's
    double latency() const;

private:
    [[noreturn]] void fail(PaError error) const;

    audio_device device_;
    direction way_;
    uint32_t rate_ = 0;
    PaStream* stream_ = nullptr;
    std::atomic<uint64_t> callbacks_{0};
    std::chrono::steady_clock::time_point started_;
    uint64_t callbacks_seen_ = 0;
    std::chrono::steady_clock::time_point last_sign_of_life_;
};

// Sound from a device at the modem's rate.
class input_stream : public audio_stream {
public:
    // `rate` 0: the modem's own if the device takes it, else the device's. Throws when the device cannot be opened, or
    // its rate has none of the bands.
    input_stream(const audio_system& system, const audio_device& device, uint32_t channels, uint32_t rate,
                 const band_list& bands = {default_band()});
    ~input_stream();

    uint32_t channels() const { return channels_; }
    // Those of the bands asked for that its rate has room for.
    const band_list& bands() const { return bands_; }
    // What has come since the last call, one vector a channel, all of one length; waits up to a hundredth of a second
    // for it. Throws when the device is gone and everything that it delivered has been read.
    void read(std::vector<std::vector<int16_t>>& pcm);
    // When the newest sample that read() returned was recorded.
    std::chrono::system_clock::time_point time_of_last_sample() const;
    // Samples a channel that came while the ring was full, and times that the device said it had lost some itself.
    uint64_t lost_samples() const { return lost_samples_; }
    uint64_t device_overruns() const { return device_overruns_; }

private:
    static int callback(const void* input, void*, unsigned long frames, const PaStreamCallbackTimeInfo*,
                        PaStreamCallbackFlags flags, void* self);

    uint32_t channels_;
    band_list bands_;
    std::unique_ptr<sample_ring<float>> ring_;
    std::atomic<uint64_t> lost_samples_{0};
    std::atomic<uint64_t> device_overruns_{0};
    std::optional<kosc_inspect::resampler> converter_; // none at the modem's own rate
    std::vector<float> raw_;                           // interleaved, at the device's rate
    std::vector<float> converted_;                     // interleaved, at the modem's
};

// Sound to a device that takes the modem's rate. Silence is played whenever there is nothing else.
class output_stream : public audio_stream {
public:
    // Takes up to `capacity` samples ahead. Throws when the device cannot be opened.
    output_stream(const audio_device& device, size_t capacity);
    ~output_stream();

    // Queues `pcm` in one piece, so that there is no gap in it; waits for room. May come before start(). False when a
    // stop was requested before. Throws when the device is gone.
    bool write(const std::vector<int16_t>& pcm);
    // Waits until everything has been played, or a stop is requested.
    void drain();

private:
    static int callback(const void*, void* output, unsigned long frames, const PaStreamCallbackTimeInfo*,
                        PaStreamCallbackFlags, void* self);

    uint32_t channels_;
    sample_ring<int16_t> ring_;
};

#endif
