#include "link.h"

#include <algorithm>
#include <cmath>

namespace kosc_link {
namespace {

constexpr double SAMPLE_RATE = 48000;
constexpr double RECORDED_RMS = 1500; // in 16-bit steps: leaves room for the noise of the lowest ratios
constexpr size_t MAX_LEAD_IN = 256;
constexpr size_t MIN_LEAD_IN = 128;
constexpr size_t TAIL = 256; // behind the frame, for the search to complete and a slow sender to finish

signal keep(const signal& frame, band, random_source*) { return frame; }

template <int Ppm> signal with_drift(const signal& frame, band, random_source*) { return drift(frame, Ppm, Ppm, 0, 0); }

signal any_drift(const signal& frame, band, random_source* random)
{
    const double ppm = 8000 * random->uniform() - 4000;
    return drift(frame, ppm, ppm, 0, 0);
}

template <int Ppm> signal echoes(const signal& frame, band, random_source*)
{
    return drift(with_echoes(frame), Ppm, Ppm, 0, 0);
}

signal near_echoes(const signal& frame, band, random_source*)
{
    return apply_taps(frame, {{0, 1.0}, {9, 0.6}, {31, 0.4}});
}

signal small_room(const signal& frame, band, random_source* random) { return in_small_room(frame, random); }

signal walking(const signal& frame, band, random_source*) { return drift(frame, 1500, 2500, 0, frame.size()); }

signal phone(const signal& frame, band where, random_source*) { return roll_off(frame, where, 12.0, SAMPLE_RATE); }

} // namespace

soundcomm_cfg_t configure(uint32_t first_subcarrier)
{
    soundcomm_cfg_t cfg = *soundcomm_default_cfg();
    soundcomm_cfg_for_band(first_subcarrier, &cfg);
    return cfg;
}

band band_of(uint32_t first_subcarrier)
{
    const ofdm_cfg ofdm = configure(first_subcarrier).ofdm_cfg;
    const double spacing = SAMPLE_RATE / ofdm.symbol_len;
    return {spacing * ofdm.sc_start_idx, spacing * (ofdm.sc_start_idx + ofdm.sc_num - 1)};
}

std::vector<uint8_t> random_message(random_source* random)
{
    std::vector<uint8_t> bytes(kosc::MESSAGE_BYTES);
    for (uint8_t& byte : bytes) {
        byte = static_cast<uint8_t>(random->bits() >> 56);
    }
    return bytes;
}

signal encode(const soundcomm_context_t& ctx, const std::vector<uint8_t>& message)
{
    signal frame(kosc::FRAME_SAMPLES);
    soundcomm_encode(ctx.tx_paras, message.data(), static_cast<uint32_t>(message.size()), frame.data(),
                     kosc::FRAME_SAMPLES);
    return frame;
}

signal with_echoes(const signal& frame) { return apply_taps(frame, {{0, 1.0}, {48, 0.7}, {130, 0.5}}); }

signal in_small_room(const signal& frame, random_source* random)
{
    return convolve(frame, room_response({0.2, 0.001, 6.0, SAMPLE_RATE}, random));
}

const std::vector<link_channel>& link_channels()
{
    static const std::vector<link_channel> all = {
        {"white", "white noise", -1, 7, keep},
        {"drift", "drift, anywhere within 4000 ppm", -1, 7, any_drift},
        {"drift-high", "drift of +4000 ppm", -1, 4, with_drift<4000>},
        {"drift-low", "drift of -4000 ppm", -1, 4, with_drift<-4000>},
        {"echoes", "echoes at 48 and 130 samples", 0, 12, echoes<0>},
        {"echoes-150", "echoes at 48 and 130 samples, 150 ppm", 0, 6, echoes<150>},
        {"echoes-1500", "echoes at 48 and 130 samples, 1500 ppm", 0, 6, echoes<1500>},
        {"near-echoes", "echoes at 9 and 31 samples", 0, 10, near_echoes},
        {"room", "small room, RT60 0.2 s", 0, 12, small_room},
        {"walking", "walking talker, +1500 to +2500 ppm", -1, 4, walking},
        {"phone", "roll-off of 12 dB across the band", 0, 9, phone},
        {"speech", "speech", -30, 15, keep, noise::SPEECH},
        {"music", "music", -30, 15, keep, noise::MUSIC},
    };
    return all;
}

const link_channel* find_channel(const std::string& name)
{
    const auto& all = link_channels();
    const auto found = std::find_if(all.begin(), all.end(), [&](const link_channel& c) { return c.name == name; });
    return found == all.end() ? nullptr : &*found;
}

link_modem::link_modem(uint32_t first_subcarrier, const sounds* others)
    : ctx_{kosc::make_receiving_context(KOSC_SECOND_LOOK_ON, configure(first_subcarrier))},
      where_{band_of(first_subcarrier)}, others_{others}
{
}

signal link_modem::transmit(const link_channel& channel, uint64_t seed)
{
    random_ = random_source{seed};
    message_ = random_message(&random_);
    const signal frame = encode(*ctx_, message_);
    lead_in_ = MIN_LEAD_IN + random_.bits() % (MAX_LEAD_IN - MIN_LEAD_IN);
    signal heard = channel.apply(frame, where_, &random_);
    scale(&heard, RECORDED_RMS / std::sqrt(mean_power(heard, 0, frame.size())));
    heard.resize(frame.size() + TAIL);
    heard.insert(heard.begin(), lead_in_, 0.0);
    return heard;
}

// Where the other sound is louder than the frame, the frame is made fainter, so that nothing is clipped.
void link_modem::add_other(signal* recording, const signal& sound, double ratio_db, random_source* random) const
{
    const double ratio = std::pow(10.0, ratio_db / 20);
    scale(recording, std::min(ratio, 1.0));
    const double gain = RECORDED_RMS / std::max(ratio, 1.0);
    size_t at = random->bits() % sound.size();
    for (double& sample : *recording) {
        sample += gain * sound[at++ % sound.size()];
    }
}

outcome link_modem::receive(const link_channel& channel, const signal& clean, double snr_db)
{
    random_source random{random_}; // the same noise, only scaled, at every ratio
    signal recording = clean;
    if (channel.sound == noise::WHITE) {
        add_noise(&recording, noise_variance(RECORDED_RMS * RECORDED_RMS, snr_db, where_, SAMPLE_RATE), &random);
    } else {
        add_other(&recording, channel.sound == noise::SPEECH ? others_->speech : others_->music, snr_db, &random);
    }
    const std::vector<int16_t> pcm = to_pcm(recording);
    data_container_reset(ctx_->rx_paras->track[0].container);
    const auto length = static_cast<uint32_t>(pcm.size());
    std::vector<uint8_t> messages(soundcomm_decode_length(ctx_.get(), length));
    result_set_t results{};
    results.decode_type = KOSC_DECODE_FIRST_TRACK;
    results.correct = {messages.data(), static_cast<uint32_t>(messages.size()), 0};
    soundcomm_receive(ctx_.get(), pcm.data(), length, &results);
    outcome result{};
    result.decoded = results.correct.count != 0;
    result.decoded_at_once = result.decoded && !soundcomm_get_frame_quality(ctx_.get()).needed;
    result.wrong = result.decoded && !std::equal(message_.begin(), message_.end(), messages.begin());
    return result;
}

} // namespace kosc_link
