#include "commands/listener.h"

#include <algorithm>
#include <tuple>

#include "modem.h"

using namespace kosc_inspect;

namespace {

received_message message_of(const kosc::heard& frame, const std::string& band, uint32_t mode)
{
    const frame_quality_t& quality = frame.report.quality;
    const std::string_view bytes = frame.bytes();
    received_message message{frame.sample,
                             frame.channel + 1,
                             band,
                             message_bytes(bytes.begin(), bytes.end()),
                             frame.report.correlation,
                             quality.attempts != 0,
                             quality.snr_db,
                             quality.drift_ppm,
                             quality.needed,
                             std::nullopt};
    if (const combined_report_t* const from = frame.report.combined) {
        // Alone, every channel counts itself as the first.
        const bool one_of_two = mode == KOSC_COMBINING_TOGETHER && microphones_of(*from) == 1;
        message.channel = one_of_two ? (from->channels >> 1U) + 1 : message.channel;
        message.measured = true;
        message.snr_db = from->newest_snr_db;
        message.drift_ppm = from->drift_ppm;
        message.combined = *from;
    }
    return message;
}

} // namespace

listener::listener(uint32_t channels, const band_list& bands, const receiver_options& how, bool cut)
    : combining_(combining_of(channels, how.combine))
{
    kosc::receiver_settings settings;
    settings.channels = channels;
    settings.second_look = how.plain ? KOSC_SECOND_LOOK_OFF : KOSC_SECOND_LOOK_MEASURE;
    settings.cut = cut;
    settings.combining = combining_;
    settings.crowd = how.crowd ? KOSC_CROWD_CANCEL : KOSC_CROWD_OFF;
    for (const sound_band& band : bands) {
        bands_.push_back({name_of(band), make_receiver(band, settings)});
    }
}

template <typename Step> std::vector<received_message> listener::each_band(Step step)
{
    std::vector<received_message> received;
    for (band_receiver& each : bands_) {
        const auto on_message = [&](const kosc::heard& frame) {
            received.push_back(message_of(frame, each.name, combining_));
        };
        const auto on_failed = [&](const kosc::heard&) { ++unreadable_frames_; };
        check(step(each.receiver, on_message, on_failed));
    }
    std::stable_sort(received.begin(), received.end(), [](const received_message& a, const received_message& b) {
        return std::tie(a.sample, a.channel) < std::tie(b.sample, b.channel);
    });
    return received;
}

std::vector<received_message> listener::receive(const channels_pcm& pcm)
{
    return each_band([&](kosc::receiver& receiver, const auto& on_message, const auto& on_failed) {
        constexpr size_t PIECE = 4096; // in turns, so that microphones are heard together
        kosc::error failed = kosc::error::none;
        for (size_t done = 0; done < pcm.front().size(); done += PIECE) {
            const size_t piece = std::min(pcm.front().size() - done, PIECE);
            for (uint32_t c = 0; c < pcm.size() && failed == kosc::error::none; ++c) {
                failed = receiver.push_channel(c, &pcm[c][done], piece, on_message, on_failed);
            }
        }
        return failed;
    });
}

std::vector<received_message> listener::finish()
{
    return each_band([](kosc::receiver& receiver, const auto& on_message, const auto& on_failed) {
        return receiver.finish(on_message, on_failed);
    });
}
