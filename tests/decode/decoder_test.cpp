#include "kosc/decoder.h"

#include <cmath>

#include "support/modem.h"

namespace {

struct verdict {
    uint32_t result;
    byte_list correct, error;
};

// With buffers of 0xEE, which stays where nothing is copied.
verdict decode(const soundcomm_context_t* ctx, const double_list& frame, uint32_t output_len = MSG_LEN)
{
    verdict v{0, byte_list(output_len, 0xEE), byte_list(output_len, 0xEE)};
    v.result = soundcomm_decode(ctx, frame.data(), static_cast<uint32_t>(frame.size()), v.correct.data(),
                                v.error.data(), output_len);
    return v;
}

TEST(Decoder, AcceptsAFrameOnlyWhenAllCrcsMatchWhereverTheyLie)
{
    const log_capture log{KOSC_LEVEL_ERROR};
    const context_ptr ctx = make_context();
    const context_ptr parted_ctx = make_context([](auto& c) { c.crc_cfg.put_crc = KOSC_CRC_AFTER_EVERY_PART; });
    const byte_list msg = message("first part...second part"), untouched(MSG_LEN, 0xEE);
    const byte_list block = content(bytes_ptr{add_crc(msg.data(), MSG_LEN, &soundcomm_default_cfg()->crc_cfg)});
    byte_list parted = block;
    std::rotate(parted.begin() + 14, parted.begin() + 28, parted.begin() + 30); // the first CRC behind the first part
    const double_list frame = encode_block(ctx->tx_paras, block), parted_frame = encode_block(ctx->tx_paras, parted);
    EXPECT_EQ(decode(ctx.get(), frame).correct, msg);
    EXPECT_EQ(decode(parted_ctx.get(), parted_frame).correct, msg);
    EXPECT_EQ(decode(parted_ctx.get(), frame).result, 0U);
    EXPECT_EQ(decode(ctx.get(), frame, MSG_LEN - 1).correct, byte_list(MSG_LEN - 1, 0xEE)) << "no room";
    EXPECT_EQ(soundcomm_decode(ctx.get(), frame.data(), FRAME_LEN, nullptr, nullptr, MSG_LEN), 1U);
    EXPECT_EQ(decode(ctx.get(), double_list(FRAME_LEN, NAN)).result, 0U);
    for (const size_t wrong : {28U, 29U, 30U, 31U}) {
        byte_list damaged = block;
        damaged[wrong] ^= 1;
        const verdict v = decode(ctx.get(), encode_block(ctx->tx_paras, damaged));
        EXPECT_EQ(v.result, 0U) << "byte " << wrong;
        EXPECT_EQ(v.error, msg);
        EXPECT_EQ(v.correct, untouched);
    }
}

// Rates whose pilots do not all lie inside the frame ask the encoder for more data than there is.
TEST(Decoder, FailsCleanlyWhereTheLayoutHasTooFewPilots)
{
    const std::tuple<uint32_t, int, const char*> cases[] = {{4, 0, "ERROR Fail to equalise."},
                                                            {5, -1, "ERROR ofdm_demode failed"},
                                                            {UINT32_MAX, -1, "ERROR ofdm_demode failed"}};
    for (const auto& [rate, encoded, error] : cases) {
        const log_capture log{KOSC_LEVEL_ERROR};
        const context_ptr ctx = make_context([rate = rate](auto& cfg) { cfg.pilot_cfg.data_pilot_rate = rate; });
        const uint32_t len = ctx->tx_paras->frame.frame_length;
        double_list frame(len, 1.0);
        EXPECT_EQ(decode(ctx.get(), frame).result, KOSC_DECODE_FAILED);
        EXPECT_EQ(logged(), text_list{error}) << rate;
        EXPECT_EQ(soundcomm_encode(ctx->tx_paras, message("x").data(), MSG_LEN, frame.data(), len), encoded) << rate;
    }
}

TEST(Decoder, ReportsTheStepThatFailed)
{
    const log_capture log{KOSC_LEVEL_ERROR};
    const context_ptr good = make_context();
    const double_list frame = encode(good.get(), message("x"));
    const auto decodes = [&](const std::function<void(soundcomm_paras_t&)>& spoil) {
        const context_ptr ctx = make_context();
        spoil(*ctx->rx_paras);
        return decode(ctx.get(), frame, 33).result != KOSC_DECODE_FAILED;
    };
    const std::string checks = "decode paras check failed.", ofdm = "ofdm_demode failed",
                      papr = "Fail to restore papr reduction.", code = "Fail to channel decode.",
                      no_room = "Fail to alloc subcarrier vector.";
    expect_refusals({
        {[&] { return decode(nullptr, frame).result == 1; }, {"ctx is null", checks}},
        {[&] { return decode(good.get(), {}).result == 1; }, {"input is null", checks}},
        {[&] { return decodes([](auto& p) { p.frame.frame_length += 1; }); }, {"input_len too short 11520", checks}},
        {[&] { return decodes([](auto& p) { p.cfg.ofdm_cfg.symbol_len = 9; }); }, {"Fail to ofdm_demod_real.", ofdm}},
        {[&] { return decodes([](auto& p) { p.cfg.ofdm_cfg.sc_start_idx = 1000; }); }, {no_room, ofdm}},
        {[&] { return decodes([](auto& p) { p.cfg.ofdm_cfg.sc_num = 32; }); }, {"Fail to equalise."}},
        {[&] { return decodes([](auto& p) { p.cfg.ofdm_cfg.papr = 4; }); }, {papr}},
        {[&] { return decodes([](auto& p) { p.cfg.interleaver_cfg.stride = 769; }); }, {"Fail to deinterleaver."}},
        {[&] { return decodes([](auto& p) { p.frame.bits = 0; }); }, {"depunched_len is 0", code}},
        {[&] { return decodes([](auto& p) { p.punch_template->kept_len = 700; }); }, {"Depunch code failed.", code}},
        {[&] { return decodes([](auto& p) { p.cfg.crc_cfg.put_crc = 2; }); }, {"Fail to calc and cmp crc."}},
        {[&] { return decodes([](auto& p) { p.cfg.crc_cfg.group = 17; }); }, {"Fail to calc and cmp crc."}},
        {[&] { return decodes([](auto& p) { p.cfg.msg_byte_len = 33; }); }, {"Fail to copy_decoded_msg."}},
    });
}

} // namespace
