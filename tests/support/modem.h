// Both ends of a modem for tests: hosts that remember what they heard, contexts of changed configurations, and sound.
#ifndef KOSC_TESTS_SUPPORT_MODEM_H
#define KOSC_TESTS_SUPPORT_MODEM_H

#include <algorithm>
#include <functional>
#include <utility>

#include <gtest/gtest.h>

#include "support/content.h"
#include "support/owned.h"

using pcm = std::vector<int16_t>;
using message_list = std::vector<byte_list>;
using count_list = std::vector<uint32_t>;
using edit = std::function<void(soundcomm_cfg_t&)>;

constexpr uint32_t MSG_LEN = 28, FRAME_LEN = 11520;

// `text` as a message, padded with zero bytes.
inline byte_list message(const std::string& text, size_t len = MSG_LEN)
{
    byte_list bytes(text.begin(), text.end());
    bytes.resize(len);
    return bytes;
}

inline pcm silence(size_t count) { return pcm(count); }

inline pcm join(const std::vector<pcm>& parts)
{
    pcm all;
    for (const pcm& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

// Sample by sample in turn, with silence behind those that end first.
inline pcm interleave(const std::vector<pcm>& channels)
{
    size_t longest = 0;
    for (const pcm& channel : channels) {
        longest = std::max(longest, channel.size());
    }
    pcm all(channels.size() * longest);
    for (size_t i = 0; i < all.size(); ++i) {
        const pcm& channel = channels[i % channels.size()];
        all[i] = i / channels.size() < channel.size() ? channel[i / channels.size()] : int16_t{0};
    }
    return all;
}

// The positions of all frames found since the log was last cleared, as lines of the log.
inline text_list logged_offsets() { return logged("DEBUG][Global offset: "); }

// Something that must fail, again and again, and all that the log then holds.
struct refusal {
    std::function<bool()> act;
    text_list errors;
};

inline text_list errors(text_list texts)
{
    std::for_each(texts.begin(), texts.end(), [](std::string& text) { text = "ERROR " + text; });
    return texts;
}

inline void expect_refusals(const std::vector<refusal>& cases)
{
    for (const auto& c : cases) {
        log_capture::clear();
        EXPECT_FALSE(c.act()) << "case " << &c - cases.data();
        EXPECT_EQ(logged(), errors(c.errors));
        const uint32_t level = std::exchange(log_level, 0);
        EXPECT_FALSE(c.act()) << "case " << &c - cases.data() << " with the log off";
        EXPECT_EQ(logged(), errors(c.errors)) << "nothing more";
        log_level = level;
    }
}

// All of these lines are in the log, among others.
inline void expect_logged(const text_list& expected)
{
    const text_list lines = logged();
    for (const auto& line : expected) {
        EXPECT_NE(std::find(lines.begin(), lines.end(), line), lines.end()) << line;
    }
}

inline context_ptr make_context(const edit& change = [](soundcomm_cfg_t&) {})
{
    soundcomm_cfg_t cfg = *soundcomm_default_cfg();
    change(cfg);
    return context_ptr{soundcomm_init(&cfg, &cfg)};
}

inline void use_block_code(soundcomm_cfg_t& cfg, uint32_t n = 8, uint32_t k = 2)
{
    cfg.channel_code_cfg.type = KOSC_CODE_LINEAR;
    cfg.channel_code_cfg.paras.linear = {n, k};
}

inline double_list encode(const soundcomm_context_t* ctx, const byte_list& msg)
{
    const uint32_t len = ctx->tx_paras->frame.frame_length;
    double_list frame(len);
    EXPECT_EQ(soundcomm_encode(ctx->tx_paras, msg.data(), static_cast<uint32_t>(msg.size()), frame.data(), len), 0);
    return frame;
}

// The frame that carries `block`, CRCs and all, whatever they are.
inline double_list encode_block(const soundcomm_paras_t* paras, const byte_list& block)
{
    const kom_vector_uint8 bytes = view_of(block);
    const bytes_ptr plain{vector_byte_to_binary(&bytes)};
    const bytes_ptr coded{add_channel_code(paras, plain.get())};
    const bytes_ptr spread{interleaver_encode(coded.get(), paras->cfg.interleaver_cfg.stride)};
    const complex_ptr symbols{qpsk_mod(spread.get())};
    EXPECT_TRUE(do_papr_reduction(paras, symbols.get()));
    const doubles_ptr frame{FrameGenerate(paras, symbols.get())};
    return frame ? list(frame->data, frame->size) : double_list{};
}

inline pcm render(const double_list& frame, audio_gain_t gain = {1, 0.8})
{
    pcm sound(frame.size());
    EXPECT_TRUE(soundcomm_make_audio(soundcomm_default_audio_format(), gain, frame.data(),
                                     static_cast<uint32_t>(frame.size()), sound.data()));
    return sound;
}

// A frame of the built-in modem whose CRCs do not match.
inline pcm bad_frame(uint8_t byte = 1) { return render(encode_block(make_context()->tx_paras, byte_list(32, byte))); }

// What came out of one channel: the messages, and the decode call that delivered each.
struct heard {
    message_list messages;
    count_list calls;
    uint32_t errors = 0; // frames found but rejected
};

// A handle whose callbacks remember what they are given. One at a time, as a callback has no user data.
class host {
public:
    struct delivery {
        int channel;
        std::vector<decode_result_t> records;
        message_list messages;
    };

    host() : handle_{ko_soundcommu_init(receive<0>, receive<1>)} { deliveries().clear(); }
    explicit host(ko_soundcommu_options_t options)
    {
        options.on_messages = [](auto* results, uint32_t count, uint32_t channel, void* user) {
            EXPECT_EQ(user, &deliveries());
            keep(static_cast<int>(channel), results, count);
        };
        options.user = &deliveries();
        handle_.reset(ko_soundcommu_init_with(&options));
        deliveries().clear();
    }
    soundcommu_handle_t* get() { return handle_.get(); }
    static std::vector<delivery>& deliveries()
    {
        static std::vector<delivery> all;
        return all;
    }

    pcm frame(const std::string& text) { return render(encode(get()->ctx[0], message(text))); }
    int decode(const pcm& block, int channel = 0)
    {
        return ko_soundcommu_decode(get(), block.data(), static_cast<int>(2 * block.size()), channel);
    }

    // Feeds `sound` in blocks of the sizes of `cutting` over and over; the last block is what is left.
    heard hear(const count_list& cutting, const pcm& sound, int channel = 0)
    {
        heard result;
        uint32_t call = 0;
        for (size_t start = 0, size = 0; start < sound.size(); start += size, ++call) {
            size = std::min<size_t>(cutting[call % cutting.size()], sound.size() - start);
            deliveries().clear();
            EXPECT_EQ(decode(list(&sound[start], size), channel), 0);
            result.errors += get()->result[channel].error.count;
            EXPECT_LE(deliveries().size(), 1U) << "more than one callback in call " << call;
            for (const auto& d : deliveries()) {
                EXPECT_EQ(d.channel, channel);
                result.messages.insert(result.messages.end(), d.messages.begin(), d.messages.end());
                result.calls.resize(result.messages.size(), call);
            }
        }
        return result;
    }

private:
    template <int Channel> static void receive(const decode_result_t* results, uint32_t count)
    {
        keep(Channel, results, count);
    }
    static void keep(int channel, const decode_result_t* results, uint32_t count)
    {
        deliveries().push_back({channel, list(results, count), {}});
        for (const auto& record : deliveries().back().records) {
            deliveries().back().messages.push_back(list(record.msg, record.len));
        }
    }

    handle_ptr handle_;
};

#endif
