#include "receivers.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <tuple>

namespace kosc_jni {

int64_t next_id()
{
    static std::atomic<int64_t> last{0};
    return ++last;
}

std::vector<std::unique_lock<std::mutex>> receiver::lock(int first, int count)
{
    std::vector<std::unique_lock<std::mutex>> locks; // always upwards, so that no two calls wait for each other
    for (int channel = first; channel < first + count; ++channel) {
        locks.emplace_back(channels_[channel].mutex);
    }
    return locks;
}

std::vector<heard> receiver::messages(int first, int count) const
{
    std::vector<heard> all;
    for (int channel = first; channel < first + count; ++channel) {
        const auto& more = channels_[channel].messages;
        all.insert(all.end(), more.begin(), more.end());
    }
    std::stable_sort(all.begin(), all.end(), [](const heard& a, const heard& b) {
        return std::tie(a.sample, a.channel) < std::tie(b.sample, b.channel);
    });
    return all;
}

void receiver::forget(int first, int count)
{
    for (int channel = first; channel < first + count; ++channel) {
        channels_[channel].messages.clear();
    }
}

bool receiver::push(int channel, const int16_t* samples, uint32_t count)
{
    channel_state& state = channels_[channel];
    bool well = prepare(state);
    for (size_t band = 0; well && band < state.listeners.size(); ++band) {
        heard place{};
        place.channel = channel;
        place.band = static_cast<int32_t>(band);
        well = hear(state.listeners[band], samples, count, place, state.messages);
    }
    return well;
}

bool receiver::finish()
{
    bool well = true;
    for (int channel = 0; well && channel < CHANNELS; ++channel) {
        if (!channels_[channel].listeners.empty()) {
            const auto& context = channels_[channel].listeners.front().context; // all bands have frames of one length
            const std::vector<int16_t> silence(soundcomm_get_silence_around(context.get()));
            well = push(channel, silence.data(), static_cast<uint32_t>(silence.size()));
        }
    }
    return well;
}

bool receiver::prepare(channel_state& channel) const
{
    if (!channel.listeners.empty()) {
        return true;
    }
    std::vector<listener> listeners;
    for (const uint32_t first_subcarrier : settings_.first_subcarriers) {
        listener made;
        soundcomm_cfg_t cfg;
        if (soundcomm_cfg_for_band(first_subcarrier, &cfg)) {
            made.context = kosc::make_receiving_context(
                settings_.second_look ? KOSC_SECOND_LOOK_MEASURE : KOSC_SECOND_LOOK_OFF, cfg);
        }
        if (!made.context) {
            return false;
        }
        if (settings_.recording) {
            const std::vector<int16_t> silence(soundcomm_get_silence_around(made.context.get()));
            std::vector<heard> nothing;
            if (!hear(made, silence.data(), static_cast<uint32_t>(silence.size()), {}, nothing)) {
                return false;
            }
            made.lead = static_cast<uint32_t>(silence.size());
        }
        listeners.push_back(std::move(made));
    }
    channel.listeners = std::move(listeners);
    return true;
}

namespace {

struct delivery {
    heard place;
    uint32_t lead;
    std::vector<heard>& messages;
    bool lost; // memory was short: an exception may not pass through the library
};

void deliver(const frame_report_t* report, void* user)
{
    auto& to = *static_cast<delivery*>(user);
    constexpr uint32_t DECODED = 1;
    if (report->verdict != DECODED) {
        return;
    }
    heard message = to.place;
    const frame_quality_t& quality = report->quality;
    const auto measured = [&](double value) { return quality.attempts > 0 ? value : std::nan(""); };
    message.sample = static_cast<int64_t>(report->sample) - to.lead;
    message.correlation = report->correlation;
    message.snr_db = measured(quality.snr_db);
    message.drift_ppm = measured(quality.drift_ppm);
    message.coherence = measured(quality.coherence);
    message.evm = measured(quality.evm);
    message.failed_crcs = report->failed_crcs;
    message.second_look_needed = quality.needed ? 1 : 0;
    std::memcpy(message.data, report->msg, std::min<size_t>(report->msg_len, sizeof message.data));
    try {
        to.messages.push_back(message);
    } catch (const std::bad_alloc&) {
        to.lost = true;
    }
}

} // namespace

bool receiver::hear(listener& from, const int16_t* samples, uint32_t count, heard place, std::vector<heard>& messages)
{
    delivery to{place, from.lead, messages, false};
    soundcomm_set_frame_callback(from.context.get(), deliver, &to);
    result_set_t counts{}; // messages come with their reports
    const bool received = count == 0 || soundcomm_receive(from.context.get(), samples, count, &counts) == 0;
    soundcomm_set_frame_callback(from.context.get(), nullptr, nullptr);
    return received && !to.lost;
}

} // namespace kosc_jni
