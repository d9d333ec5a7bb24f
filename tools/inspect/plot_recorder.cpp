#include "plot_recorder.h"

#include <algorithm>
#include <stdexcept>

namespace kosc_inspect {
namespace {

constexpr uint32_t WATERFALL_HOP = 256;
constexpr uint32_t CORRELATION_HOP = 16;
constexpr double SHOWN_BELOW = 6000.0; // Hz

} // namespace

plot_recorder::plot_recorder(uint32_t sample_rate, uint32_t channels, const sound_band& band)
    : sample_rate_(sample_rate), lowest_(std::max(0.0, band.low_hz - SHOWN_BELOW)),
      receiver_(make_receiver(band, {channels}))
{
    for (uint32_t i = 0; i < channels; ++i) {
        data_container* const container = soundcomm_get_datacontainer(receiver_.context(i)->rx_paras, 0);
        lead_ = container->sync_length - 1;
        channels_.push_back({container, {sample_rate_, WATERFALL_HOP, band}, {}, {}, 0.0F, 0});
    }
}

void plot_recorder::process_raw(const float* interleaved, size_t frames)
{
    const auto first_bin = static_cast<size_t>(lowest_ / (sample_rate_ / SPECTRUM_LENGTH));
    const size_t stride = channels_.size();
    for (size_t c = 0; c < stride; ++c) {
        channel_state& channel = channels_[c];
        for (size_t i = 0; i < frames; ++i) {
            const uint64_t before = channel.spectrum.blocks();
            channel.spectrum.process(interleaved + i * stride + c, 1, stride);
            if (channel.spectrum.blocks() != before) {
                const std::vector<double>& powers = channel.spectrum.newest();
                timeline::column levels;
                for (size_t k = first_bin; k + 1 < powers.size(); k += 2) {
                    levels.push_back(static_cast<float>(to_db((powers[k] + powers[k + 1]) / 2)));
                }
                channel.waterfall.add(levels);
            }
        }
    }
}

void plot_recorder::process(uint32_t channel, const int16_t* pcm, size_t count)
{
    channel_state& state = channels_[channel];
    for (size_t done = 0; done < count;) {
        const auto piece =
            static_cast<uint32_t>(std::min<size_t>(count - done, data_container_unused(state.container)));
        correlate(state, pcm + done, piece);
        done += piece;
    }
}

void plot_recorder::correlate(channel_state& channel, const int16_t* pcm, uint32_t count)
{
    data_container* const container = channel.container;
    const uint32_t known = vector_size(container->corrcoef);
    constexpr uint32_t ONE_TRACK = 1;
    if (count == 0 || !data_container_recv_block(container, pcm, ONE_TRACK, count)) {
        throw std::runtime_error("the receiver's buffer is in disorder");
    }
    const double* const values = vector_view(container->corrcoef, static_cast<int32_t>(known), count);
    for (uint32_t i = 0; i < count; ++i) {
        channel.highest = std::max(channel.highest, static_cast<float>(values[i]));
        if (++channel.values == CORRELATION_HOP) {
            channel.correlation.add({channel.highest});
            channel.highest = 0.0F;
            channel.values = 0;
        }
    }
    sync_iter* const frame = data_container_begin(container);
    while (!sync_iter_is_end(frame)) {
        sync_iter_next(frame);
    }
    data_container_rm_outdated(frame);
    sync_iter_free(frame);
}

double plot_recorder::waterfall_step(uint32_t channel) const
{
    return static_cast<double>(WATERFALL_HOP * channels_[channel].waterfall.share());
}

double plot_recorder::correlation_step(uint32_t channel) const
{
    return static_cast<double>(CORRELATION_HOP * channels_[channel].correlation.share());
}

} // namespace kosc_inspect
