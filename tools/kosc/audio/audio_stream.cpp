#include "audio/audio_stream.h"

#include <algorithm>
#include <stdexcept>
#include <thread>

#include "audio/audio_file.h"
#include "commands/stop_request.h"

namespace {

using std::chrono::duration;
using std::chrono::steady_clock;

constexpr auto POLL_INTERVAL = std::chrono::milliseconds(10);
constexpr auto LONGEST_SILENCE = std::chrono::seconds(3); // of a callback
constexpr uint32_t INPUT_RING_SECONDS = 8; // decoding a burst of frames may take that long on a slow computer
constexpr size_t READ_FRAMES = 4096;

std::string reason_of(PaError error)
{
    return error == paUnanticipatedHostError ? Pa_GetLastHostErrorInfo()->errorText : Pa_GetErrorText(error);
}

void sleep_shortly() { std::this_thread::sleep_for(POLL_INTERVAL); }

uint32_t input_rate(const audio_system& system, const audio_device& device, uint32_t wanted)
{
    if (wanted != 0) {
        return wanted;
    }
    const std::vector<uint32_t> rates = system.rates(device, direction::INPUT);
    if (rates.empty() || std::count(rates.begin(), rates.end(), kosc::SAMPLE_RATE) != 0) {
        return kosc::SAMPLE_RATE;
    }
    constexpr uint32_t WHOLE_SPECTRUM = 44100;
    const auto whole = std::lower_bound(rates.begin(), rates.end(), WHOLE_SPECTRUM);
    return whole != rates.end() ? *whole : rates.back();
}

} // namespace

audio_stream::audio_stream(audio_device device, direction way) : device_(std::move(device)), way_(way) {}

void audio_stream::open(uint32_t channels, uint32_t rate, PaSampleFormat format, PaStreamCallback* callback, void* self)
{
    rate_ = rate;
    const bool input = way_ == direction::INPUT;
    const PaStreamParameters wanted{device_.index, static_cast<int>(channels), format, device_.latency(way_), nullptr};
    const PaError error = Pa_OpenStream(&stream_, input ? &wanted : nullptr, input ? nullptr : &wanted, rate,
                                        paFramesPerBufferUnspecified, paClipOff | paDitherOff, callback, self);
    if (error != paNoError) {
        stream_ = nullptr;
        fail(error);
    }
}

void audio_stream::start()
{
    const PaError error = Pa_StartStream(stream_);
    if (error != paNoError) {
        fail(error);
    }
    last_sign_of_life_ = steady_clock::now();
}

void audio_stream::fail(PaError error) const
{
    throw std::runtime_error("cannot open device '" + device_.name + "' at " + std::to_string(rate_) +
                             " Hz: " + reason_of(error));
}

void audio_stream::close()
{
    if (stream_ != nullptr) {
        Pa_CloseStream(stream_);
        stream_ = nullptr;
    }
}

void audio_stream::check_alive()
{
    const steady_clock::time_point now = steady_clock::now();
    if (const uint64_t callbacks = callbacks_; callbacks != callbacks_seen_) {
        callbacks_seen_ = callbacks;
        last_sign_of_life_ = now;
    }
    if (Pa_IsStreamActive(stream_) != 1 || now - last_sign_of_life_ > LONGEST_SILENCE) {
        throw std::runtime_error("device '" + device_.name + "' has stopped; was it unplugged?");
    }
}

void audio_stream::note_callback()
{
    if (callbacks_ == 0) {
        started_ = steady_clock::now(); // read only after callbacks_
    }
    ++callbacks_;
}

std::chrono::steady_clock::time_point audio_stream::started() const
{
    return callbacks_ != 0 ? started_ : steady_clock::now();
}

double audio_stream::latency() const
{
    const PaStreamInfo* const info = Pa_GetStreamInfo(stream_);
    return info == nullptr ? 0.0 : way_ == direction::INPUT ? info->inputLatency : info->outputLatency;
}

input_stream::input_stream(const audio_system& system, const audio_device& device, uint32_t channels, uint32_t rate,
                           const band_list& bands)
    : audio_stream(device, direction::INPUT), channels_(channels)
{
    const uint32_t device_rate = input_rate(system, device, rate);
    bands_ = bands_within(device_rate, bands);
    ring_ = std::make_unique<sample_ring<float>>(size_t{INPUT_RING_SECONDS} * device_rate * channels);
    raw_.resize(READ_FRAMES * channels);
    if (device_rate != kosc::SAMPLE_RATE) {
        converter_.emplace(device_rate, kosc::SAMPLE_RATE, channels, highest_edge(bands_));
    }
    open(channels, device_rate, paFloat32, callback, this);
}

input_stream::~input_stream() { close(); }

int input_stream::callback(const void* input, void*, unsigned long frames, const PaStreamCallbackTimeInfo*,
                           PaStreamCallbackFlags flags, void* self)
{
    auto* const stream = static_cast<input_stream*>(self);
    stream->note_callback();
    if ((flags & paInputOverflow) != 0) {
        ++stream->device_overruns_;
    }
    if (input == nullptr || !stream->ring_->write(static_cast<const float*>(input), frames * stream->channels_)) {
        stream->lost_samples_ += frames;
    }
    return paContinue;
}

void input_stream::read(std::vector<std::vector<int16_t>>& pcm)
{
    if (ring_->size() == 0) {
        check_alive();
        sleep_shortly();
    }
    const size_t frames = ring_->read(raw_.data(), raw_.size()) / channels_;
    const size_t usable = converter_ ? converter_->convert(raw_.data(), frames, converted_) : frames;
    to_pcm(converter_ ? converted_ : raw_, usable, channels_, pcm);
}

std::chrono::system_clock::time_point input_stream::time_of_last_sample() const
{
    const duration<double> ago(latency() + static_cast<double>(ring_->size() / channels_) / rate() +
                               (converter_ ? converter_->delay() : 0.0));
    return std::chrono::system_clock::now() - std::chrono::duration_cast<std::chrono::system_clock::duration>(ago);
}

output_stream::output_stream(const audio_device& device, size_t capacity)
    : audio_stream(device, direction::OUTPUT), channels_(std::min(device.outputs, 2U)), ring_(capacity)
{
    open(channels_, kosc::SAMPLE_RATE, paInt16, callback, this);
}

output_stream::~output_stream() { close(); }

// Plays the one channel that there is on all of the device's.
int output_stream::callback(const void*, void* output, unsigned long frames, const PaStreamCallbackTimeInfo*,
                            PaStreamCallbackFlags, void* self)
{
    auto* const stream = static_cast<output_stream*>(self);
    stream->note_callback();
    auto* const pcm = static_cast<int16_t*>(output);
    const size_t got = stream->ring_.read(pcm, frames);
    std::fill(pcm + got, pcm + frames, int16_t{0});
    for (size_t i = frames; i-- > 0;) { // from the end: spread in place
        std::fill_n(pcm + i * stream->channels_, stream->channels_, pcm[i]);
    }
    return paContinue;
}

bool output_stream::write(const std::vector<int16_t>& pcm)
{
    while (!stop_requested()) {
        if (ring_.write(pcm.data(), pcm.size())) {
            return true;
        }
        check_alive();
        sleep_shortly();
    }
    return false;
}

void output_stream::drain()
{
    while (ring_.size() != 0 && !stop_requested()) {
        check_alive();
        sleep_shortly();
    }
    // What has left the ring is in the device's buffer.
    const auto played = steady_clock::now() + duration<double>(latency());
    while (steady_clock::now() < played && !stop_requested()) {
        sleep_shortly();
    }
}
