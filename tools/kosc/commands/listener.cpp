#include "commands/listener.h"

#include <algorithm>
#include <stdexcept>
#include <tuple>

namespace {

heard_message message_of(const kosc::heard& frame, const std::string& band)
{
    const frame_quality_t& quality = frame.report.quality;
    const std::string_view bytes = frame.bytes();
    return {frame.sample,
            frame.channel + 1,
            band,
            message_bytes(bytes.begin(), bytes.end()),
            frame.report.correlation,
            quality.attempts != 0,
            quality.snr_db,
            quality.drift_ppm,
            quality.needed};
}

} // namespace

listener::listener(uint32_t channels, const band_list& bands, bool second_look, bool cut)
{
    for (const sound_band& band : bands) {
        auto made = kosc::receiver::make(
            {channels, band.first_subcarrier, second_look ? KOSC_SECOND_LOOK_MEASURE : KOSC_SECOND_LOOK_OFF, cut});
        if (!made) {
            throw std::runtime_error(std::string("cannot set up the receiver: ") + kosc::describe(made.why()));
        }
        bands_.push_back({name_of(band), std::move(*made)});
    }
}

template <typename Step> std::vector<heard_message> listener::each_band(Step step)
{
    std::vector<heard_message> heard;
    for (band_receiver& each : bands_) {
        const auto on_message = [&](const kosc::heard& frame) { heard.push_back(message_of(frame, each.name)); };
        const auto on_failed = [&](const kosc::heard&) { ++unreadable_frames_; };
        if (const kosc::error failed = step(each.receiver, on_message, on_failed); failed != kosc::error::none) {
            throw std::runtime_error(kosc::describe(failed));
        }
    }
    std::stable_sort(heard.begin(), heard.end(), [](const heard_message& a, const heard_message& b) {
        return std::tie(a.sample, a.channel) < std::tie(b.sample, b.channel);
    });
    return heard;
}

std::vector<heard_message> listener::hear(const channels_pcm& pcm)
{
    return each_band([&](kosc::receiver& receiver, const auto& on_message, const auto& on_failed) {
        kosc::error failed = kosc::error::none;
        for (uint32_t c = 0; c < pcm.size() && failed == kosc::error::none; ++c) {
            failed = receiver.push_channel(c, pcm[c].data(), pcm[c].size(), on_message, on_failed);
        }
        return failed;
    });
}

std::vector<heard_message> listener::finish()
{
    return each_band([](kosc::receiver& receiver, const auto& on_message, const auto& on_failed) {
        return receiver.finish(on_message, on_failed);
    });
}
