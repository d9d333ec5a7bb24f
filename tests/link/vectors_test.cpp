#include <fstream>
#include <iterator>

#include <nlohmann/json.hpp>

#include "support/modem.h"

namespace {

using nlohmann::json;

std::string read(const std::string& file)
{
    std::ifstream in{KOSC_TEST_VECTORS "/" + file, std::ios::binary};
    return {std::istreambuf_iterator<char>{in}, {}};
}

// 16-bit samples, the low byte first.
pcm read_sound(const std::string& file)
{
    const std::string bytes = read(file);
    pcm sound;
    for (size_t i = 0; i + 1 < bytes.size(); i += 2) {
        sound.push_back(static_cast<int16_t>(static_cast<uint8_t>(bytes[i]) | static_cast<uint8_t>(bytes[i + 1]) << 8));
    }
    return sound;
}

byte_list from_hex(const std::string& hex)
{
    byte_list bytes;
    for (size_t i = 0; i < hex.size(); i += 2) {
        bytes.push_back(static_cast<uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

TEST(Vectors, GiveEveryStageOfTheFrames)
{
    const log_capture log{KOSC_LEVEL_WARN};
    host h;
    const soundcomm_paras_t* const paras = h.get()->ctx[0]->tx_paras;
    for (const std::string name : {"frame_count", "frame_random1"}) {
        SCOPED_TRACE(name);
        const json expected = json::parse(read(name + ".json"));
        const byte_list msg = from_hex(expected["message"]);
        const bytes_ptr block{add_crc(msg.data(), MSG_LEN, &paras->cfg.crc_cfg)};
        EXPECT_EQ(content(block), from_hex(expected["block"]));
        const bytes_ptr plain{vector_byte_to_binary(block.get())};
        EXPECT_EQ(content(plain), bits(expected["bits"]));
        EXPECT_EQ(content(conv_code_encode(paras->conv_code, plain->data, plain->size)), bits(expected["coded"]));
        const bytes_ptr punctured{add_channel_code(paras, plain.get())};
        EXPECT_EQ(content(punctured), bits(expected["punctured"]));
        const bytes_ptr spread{interleaver_encode(punctured.get(), paras->cfg.interleaver_cfg.stride)};
        EXPECT_EQ(content(spread), bits(expected["interleaved"]));
        pcm frame(FRAME_LEN);
        EXPECT_EQ(ko_soundcommu_encode(h.get(), msg.data(), MSG_LEN, frame.data(), 2 * FRAME_LEN), 0);
        EXPECT_EQ(frame, read_sound(name + ".s16"));
        EXPECT_EQ(h.hear({FRAME_LEN}, frame).messages, message_list{msg});
    }
}

TEST(Vectors, GiveWhatAReceiverMakesOfTheRecordingsHoweverTheyAreCut)
{
    const log_capture log{KOSC_LEVEL_DEBUG};
    json recordings = json::parse(read("recordings.json"));
    const count_list cycle = recordings["cycle"];
    recordings.erase("cycle");
    for (const auto& [name, recording] : recordings.items()) {
        const pcm sound = read_sound(recording["file"]);
        for (const auto& [cutting, expected] : recording["results"].items()) {
            SCOPED_TRACE(testing::Message() << name << " in blocks of " << cutting);
            const size_t size = cutting == "whole" ? sound.size() : static_cast<size_t>(std::atoi(cutting.c_str()));
            host h;
            log_capture::clear();
            const heard result = h.hear(cutting == "cycle" ? cycle : count_list{static_cast<uint32_t>(size)}, sound);
            message_list messages;
            for (const auto& hex : expected["messages"]) {
                messages.push_back(from_hex(hex));
            }
            text_list offsets;
            for (const auto& offset : expected["offsets"]) {
                offsets.push_back("DEBUG Global offset: " + offset.dump());
            }
            EXPECT_EQ(result.messages, messages);
            EXPECT_EQ(result.calls, expected["calls"].get<count_list>());
            EXPECT_EQ(result.errors, expected["errors"].get<uint32_t>());
            EXPECT_EQ(logged_offsets(), offsets);
        }
    }
}

} // namespace
