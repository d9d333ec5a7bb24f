#include "kosc/handle.h"

#include <algorithm>
#include <cstring>
#include <ctime>

#include "log/log_macros.h"
#include "platform/owned.h"
#include "receive/combined_frames.h"

using namespace kosc;

namespace {

// Sizes a channel's collector for blocks of `samples`; nothing to do when it already is.
bool size_collector(soundcommu_handle_t* handle, int channel, uint32_t samples)
{
    result_set_t& result = handle->result[channel];
    if (samples == handle->result_len[channel] && result.correct.buffer != nullptr) {
        return true;
    }
    KOSC_LOG_INFO("init result collector %d", samples);
    const soundcomm_paras_t& paras = *handle->ctx[channel]->rx_paras;
    const uint32_t combined = most_combined(paras, samples);
    const uint32_t size = soundcomm_decode_length(handle->ctx[channel], samples) + combined * paras.cfg.msg_byte_len;
    list_combined(paras, nullptr, 0);
    std::free(result.correct.buffer);
    std::free(handle->combined[channel]);
    result = {};
    result.decode_type = KOSC_DECODE_FIRST_TRACK;
    result.correct.buffer = alloc_array<uint8_t>(size);
    handle->combined[channel] = combined != 0 ? alloc_array<given_message>(combined) : nullptr;
    if (result.correct.buffer == nullptr || (combined != 0 && handle->combined[channel] == nullptr)) {
        std::free(result.correct.buffer);
        result.correct.buffer = nullptr;
        KOSC_LOG_ERROR("init result collector failed %d", samples);
        return false;
    }
    list_combined(paras, static_cast<given_message*>(handle->combined[channel]), combined);
    result.correct.room = size;
    handle->result_len[channel] = samples;
    return true;
}

// Hands the stored messages to the channel's callback.
bool deliver(const soundcommu_handle_t* handle, int channel)
{
    const result_part_t& correct = handle->result[channel].correct;
    const uint32_t msg_len = soundcomm_default_cfg()->msg_byte_len;
    // Frames are counted also when their message no longer fits.
    const uint32_t stored = std::min(correct.count, correct.room / msg_len);
    if (stored < correct.count) {
        KOSC_LOG_WARN("%d stored only %u of %u messages.", channel, stored, correct.count);
    }
    if (stored == 0) {
        return true;
    }
    const block_ptr<decode_result_t> records{alloc_zeroed<decode_result_t>(stored)};
    KOSC_RETURN_IF(!records, false, "Fail to alloc frame result");
    for (uint32_t i = 0; i < stored; ++i) {
        records[i] = {correct.buffer + size_t{i} * msg_len, msg_len};
    }
    KOSC_LOG_DEBUG("callback start.");
    if (handle->recv_callback[channel] != nullptr) {
        handle->recv_callback[channel](records.get(), stored);
    }
    if (handle->on_messages != nullptr) {
        handle->on_messages(records.get(), stored, static_cast<uint32_t>(channel), handle->user);
    }
    KOSC_LOG_DEBUG("callback end.");
    return true;
}

} // namespace

int ko_soundcommu_decode(soundcommu_handle_t* handle, const int16_t* data, int data_len, int channel)
{
    KOSC_RETURN_IF(handle == nullptr, -1, "kosc is NULL");
    KOSC_RETURN_IF(channel < 0 || channel >= KOSC_CHANNELS, -1, "Invalid channel %d", channel);
    KOSC_RETURN_IF(data == nullptr, -1, "data is null.");
    KOSC_RETURN_IF(data_len < 1 || data_len % 2 != 0, -1, "Invalid data len %d", data_len);
    const uint32_t samples = static_cast<uint32_t>(data_len) / 2;
    if (!size_collector(handle, channel, samples)) {
        return -1;
    }
    result_set_t& result = handle->result[channel];
    result.correct.count = 0;
    result.error.count = 0;
    timespec start{};
    timer_start(&start);
    KOSC_RETURN_IF(soundcomm_receive(handle->ctx[channel], data, samples, &result) != 0, -1, "Fail to recv data");
    KOSC_LOG_INFO("soundcomm_receive %d cost %ld ms.", channel, timer_end(&start));
    if (result.error.count != 0) {
        KOSC_LOG_DEBUG("%d decoded %d frame error.", channel, result.error.count);
    }
    if (result.correct.count == 0) {
        return 0;
    }
    KOSC_LOG_DEBUG("%d decoded %d frame succ.", channel, result.correct.count);
    return deliver(handle, channel) ? 0 : -1;
}

int ko_soundcommu_get_combined(const soundcommu_handle_t* handle, int channel, uint32_t index,
                               ko_soundcommu_combined_t* combined, uint32_t size)
{
    KOSC_RETURN_IF(handle == nullptr, -1, "kosc is NULL");
    KOSC_RETURN_IF(channel < 0 || channel >= KOSC_CHANNELS, -1, "Invalid channel %d", channel);
    KOSC_RETURN_IF(combined == nullptr, -1, "combined is NULL");
    const result_part_t& correct = handle->result[channel].correct;
    const uint32_t msg_len = soundcomm_default_cfg()->msg_byte_len;
    KOSC_RETURN_IF(index >= std::min(correct.count, correct.room / msg_len), -1, "no message %u", index);
    const combined_report_t* const report =
        find_combined(*handle->ctx[channel]->rx_paras, correct.buffer + size_t{index} * msg_len);
    if (report == nullptr) {
        return 0;
    }
    ko_soundcommu_combined_t known{};
    known.frames = report->frames;
    known.hearings = report->hearings;
    known.microphones = (report->channels & 1U) + (report->channels >> 1U);
    known.channels = report->channels;
    known.snr_db = report->snr_db;
    known.newest_snr_db = report->newest_snr_db;
    known.seconds = report->seconds;
    std::memset(combined, 0, size);
    std::memcpy(combined, &known, std::min(size_t{size}, sizeof(known)));
    return 1;
}
