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

receiver::ears receiver::ears_of(int channel) const
{
    const bool together = settings_.combining == KOSC_COMBINING_TOGETHER && channel < MICROPHONES;
    return together ? ears{0, MICROPHONES} : ears{channel, 1};
}

std::vector<std::unique_lock<std::mutex>> receiver::lock(int first, int count)
{
    const int end = std::max(first + count, ears_of(first).first + ears_of(first).count);
    first = ears_of(first).first;
    std::vector<std::unique_lock<std::mutex>> locks; // always upwards, so that no two calls wait for each other
    for (int channel = first; channel < end; ++channel) {
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
    bool well = prepare(ears_of(channel));
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
    constexpr uint32_t PIECE = 4096; // in turns, as channels that are combined listen
    const int16_t silence[PIECE] = {};
    bool well = true;
    for (uint32_t left = 2 * kosc::FRAME_SAMPLES; well && left > 0; left -= std::min(left, PIECE)) {
        for (int channel = 0; well && channel < CHANNELS; ++channel) {
            well = channels_[channel].listeners.empty() || push(channel, silence, std::min(left, PIECE));
        }
    }
    return well;
}

bool receiver::prepare(ears channels)
{
    if (!channels_[channels.first].listeners.empty()) {
        return true;
    }
    std::vector<listener> made[MICROPHONES];
    if (!make_listeners(channels, made)) {
        return false;
    }
    for (int c = 0; c < channels.count; ++c) { // all or none
        channels_[channels.first + c].listeners = std::move(made[c]);
    }
    return true;
}

bool receiver::make_listeners(ears channels, std::vector<listener>* made) const
{
    for (const uint32_t first_subcarrier : settings_.first_subcarriers) {
        for (int c = 0; c < channels.count; ++c) {
            listener each;
            soundcomm_cfg_t cfg;
            if (soundcomm_cfg_for_band(first_subcarrier, &cfg)) {
                each.context = kosc::make_receiving_context(settings_.second_look ? KOSC_SECOND_LOOK_MEASURE
                                                                                  : KOSC_SECOND_LOOK_OFF,
                                                            cfg, settings_.crowd ? KOSC_CROWD_CANCEL : KOSC_CROWD_OFF);
            }
            if (!each.context) {
                return false;
            }
            made[c].push_back(std::move(each));
        }
        soundcomm_context_t* const first = made[0].back().context.get();
        soundcomm_context_t* const second = channels.count > 1 ? made[1].back().context.get() : nullptr;
        const uint32_t mode = second != nullptr ? KOSC_COMBINING_TOGETHER : KOSC_COMBINING_EACH;
        if (settings_.combining != KOSC_COMBINING_OFF && !soundcomm_config_combining(first, second, mode)) {
            return false;
        }
        for (int c = 0; settings_.recording && c < channels.count; ++c) {
            listener& each = made[c].back();
            const std::vector<int16_t> silence(soundcomm_get_silence_around(each.context.get()));
            std::vector<heard> nothing;
            if (!hear(each, silence.data(), static_cast<uint32_t>(silence.size()), {}, nothing)) {
                return false;
            }
            each.lead = static_cast<uint32_t>(silence.size());
        }
    }
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
    if (const combined_report_t* const combined = report->combined; combined != nullptr) {
        message.snr_db = combined->snr_db;
        message.drift_ppm = combined->drift_ppm;
        message.newest_snr_db = combined->newest_snr_db;
        message.seconds = combined->seconds;
        message.frames = combined->frames;
        message.hearings = combined->hearings;
        for (uint32_t channels = combined->channels; channels != 0; channels &= channels - 1) {
            ++message.microphones;
        }
    }
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
