#include "kosc/kosc.h"

#include <cstdlib>

#include "support/modem.h"

namespace {

void ignore(const decode_result_t*, uint32_t) {}

count_list fields(const audio_para_t& p)
{
    return {p.sample_rate, p.channel_num, p.bit_depth, p.frame_size, p.frame_bytes, p.aux_value};
}

TEST(Host, LogsItsLifeBehindTheVersionOnceItRegistered)
{
    const log_capture log;
    ko_soundcommu_register_log([](const char* line) { log_capture::lines().emplace_back(line); });
    soundcommu_handle_t* const handle = ko_soundcommu_init(ignore, ignore);
    const int16_t sample = 0;
    log_level = KOSC_LEVEL_WARN;
    EXPECT_EQ(ko_soundcommu_decode(handle, &sample, 2, 1), 0);
    log_level = KOSC_LEVEL_INFO;
    ko_soundcommu_release(handle);
    EXPECT_FALSE(ko_soundcommu_init(nullptr, ignore) != nullptr || ko_soundcommu_init(ignore, nullptr) != nullptr);
    ko_soundcommu_release(nullptr);
    EXPECT_EQ(logged(),
              (text_list{"INFO ko_soundcommu version: 1.1.0", "INFO kosc init start", "INFO kosc init finished",
                         "INFO kosc release ctx 0", "INFO kosc release ctx 1", "INFO kosc release result buff 1",
                         "INFO kosc release finished.", "INFO kosc init start", "ERROR Recv callback is NULL.",
                         "INFO kosc init start", "ERROR Recv callback is NULL."}));
}

TEST(Host, ReportsTheFirstFailingCheckOfACall)
{
    const log_capture log{KOSC_LEVEL_ERROR};
    host h;
    const byte_list msg = message("checked");
    pcm frame(FRAME_LEN);
    audio_para_t record;
    const auto encodes = [](soundcommu_handle_t* handle, const uint8_t* m, uint32_t len, int16_t* to, uint32_t size) {
        return ko_soundcommu_encode(handle, m, len, to, size) != -1;
    };
    const auto decodes = [](soundcommu_handle_t* handle, const int16_t* data, int len, int channel) {
        return ko_soundcommu_decode(handle, data, len, channel) != -1;
    };
    expect_refusals({
        {[&] { return ko_soundcommu_get_audio_para(nullptr, &record) != -1; }, {"play_para or record_para is NULL"}},
        {[&] { return encodes(nullptr, nullptr, 27, nullptr, 23038); }, {"kosc is NULL"}},
        {[&] { return encodes(h.get(), nullptr, 27, nullptr, 23038); }, {"msg is NULL"}},
        {[&] { return encodes(h.get(), msg.data(), 27, nullptr, 23038); }, {"Msg length 27 28 invalid"}},
        {[&] { return encodes(h.get(), msg.data(), 28, nullptr, 23038); }, {"encoded_frame is NULL"}},
        {[&] { return encodes(h.get(), msg.data(), 28, frame.data(), 23042); }, {"frame length 11521 invalid"}},
        {[&] { return decodes(nullptr, nullptr, 0, 2); }, {"kosc is NULL"}},
        {[&] { return decodes(h.get(), nullptr, 0, 2); }, {"Invalid channel 2"}},
        {[&] { return decodes(h.get(), nullptr, 0, 1); }, {"data is null."}},
        {[&] { return decodes(h.get(), frame.data(), -2, 1); }, {"Invalid data len -2"}},
        {[&] { return decodes(h.get(), frame.data(), 3, 1); }, {"Invalid data len 3"}},
    });
    EXPECT_EQ(h.decode({0}), 0);
    h.get()->ctx[0]->tx_paras->cfg.crc_cfg.put_crc = 0;
    h.get()->result[0].decode_type = KOSC_DECODE_MERGE;
    expect_refusals({
        {[&] { return encodes(h.get(), msg.data(), 28, frame.data(), 23040); },
         {"Encode only support crc AT LAST", "soundcomm encode fail"}},
        {[&] { return decodes(h.get(), frame.data(), 2, 0); },
         {"MERGE not supportted yet.", "receive_data error", "Fail to recv data"}},
    });
    EXPECT_EQ(frame, pcm(FRAME_LEN));
}

TEST(Host, EncodesAFrameAsLongAsItTold)
{
    const log_capture log{KOSC_LEVEL_INFO};
    host h;
    audio_para_t play{1, 1, 1, 1, 1, 1}, record = play;
    EXPECT_EQ(ko_soundcommu_get_audio_para(&play, &record), 0);
    EXPECT_EQ(fields(play), (count_list{48000, 1, 16, 23040, 23040, 4}));
    EXPECT_EQ(fields(record), (count_list{48000, 2, 16, 1, 1, 1}));
    pcm frame(FRAME_LEN + 1, 99);
    EXPECT_EQ(ko_soundcommu_encode(h.get(), message("peak").data(), MSG_LEN, frame.data(), 23041), 0) << "odd is well";
    expect_logged({"INFO soundcomm encode successfully."});
    EXPECT_EQ(frame.back(), 99);
}

// A lost collector is left behind by a block of another size for which there was no memory.
TEST(Host, SizesTheCollectorOnlyWhenTheBlockSizeChangesOrItWasLost)
{
    const log_capture log{KOSC_LEVEL_INFO};
    host h;
    result_part_t& correct = h.get()->result[0].correct;
    for (const uint32_t samples : {480U, 480U, 23040U, 11520U}) {
        EXPECT_EQ(h.decode(silence(samples)), 0);
        EXPECT_EQ(correct.room, (samples / FRAME_LEN + 2) * MSG_LEN);
    }
    EXPECT_EQ(host::deliveries().size(), 0U) << "no callback for nothing heard";
    std::free(correct.buffer);
    correct = {};
    EXPECT_EQ(h.hear({FRAME_LEN}, h.frame("kept")).messages, message_list{message("kept")});
    EXPECT_EQ(logged("INFO][init result"),
              (text_list{"INFO init result collector 480", "INFO init result collector 23040",
                         "INFO init result collector 11520", "INFO init result collector 11520"}));
}

TEST(Host, DeliversThreeFramesOfABlockInOneCallbackButOnlyMessagesThatAreStored)
{
    const log_capture log;
    host h;
    const pcm block = join({h.frame("one"), h.frame("two"), h.frame("three"), bad_frame(), silence(5000)});
    EXPECT_EQ(h.decode(block, 1), 0);
    ASSERT_EQ(host::deliveries().size(), 1U);
    const auto delivery = host::deliveries()[0];
    EXPECT_EQ(delivery.channel, 1);
    EXPECT_EQ(delivery.messages, (message_list{message("one"), message("two"), message("three")}));
    EXPECT_EQ(h.decode(silence(block.size()), 0), 0);
    EXPECT_EQ(list(delivery.records[0].msg + 2 * MSG_LEN, MSG_LEN), message("three"))
        << "until the channel's next call";
    h.get()->result[0].correct.room = 2 * MSG_LEN + 3;
    EXPECT_EQ(h.decode(block), 0);
    EXPECT_EQ(host::deliveries().back().messages, (message_list{message("one"), message("two")}));
    EXPECT_EQ(logged("INFO][soundcomm_receive 1 cost ").size(), 1U);
    expect_logged({"WARN 0 stored only 2 of 3 messages.", "DEBUG 1 decoded 1 frame error.",
                   "DEBUG 1 decoded 3 frame succ.", "DEBUG callback start.", "DEBUG callback end."});
}

} // namespace
