#include "kosc/encoder.h"

#include "support/modem.h"

namespace {

int encode_with(const soundcomm_paras_t* paras, const byte_list& msg, double_list* frame, uint32_t output_len)
{
    return soundcomm_encode(paras, msg.empty() ? nullptr : msg.data(), static_cast<uint32_t>(msg.size()),
                            frame != nullptr ? frame->data() : nullptr, output_len);
}

TEST(Encoder, ReportsTheFirstFailingCheck)
{
    const log_capture log{KOSC_LEVEL_ERROR};
    const context_ptr parted = make_context([](auto& c) { c.crc_cfg.put_crc = KOSC_CRC_AFTER_EVERY_PART; });
    const soundcomm_paras_t* const paras = parted->tx_paras;
    double_list frame(FRAME_LEN);
    const byte_list shorter(27);
    expect_refusals({
        {[&] { return encode_with(nullptr, {}, nullptr, 0) == 0; }, {"soundcomm_context_t is NULL"}},
        {[&] { return encode_with(paras, {}, nullptr, 0) == 0; }, {"input is NULL"}},
        {[&] { return encode_with(paras, shorter, nullptr, 0) == 0; }, {"output is NULL"}},
        {[&] { return encode_with(paras, shorter, &frame, 11519) == 0; },
         {"output_len(11519) is less than frame_len(11520)"}},
        {[&] { return encode_with(paras, shorter, &frame, 11520) == 0; },
         {"input_len(27) is not equal to msg_byte_len(28)"}},
        {[&] { return encode_with(paras, message("x"), &frame, 11520) == 0; }, {"Encode only support crc AT LAST"}},
    });
    EXPECT_EQ(frame, double_list(FRAME_LEN));
}

TEST(Encoder, ReportsTheStepThatFailed)
{
    const log_capture log{KOSC_LEVEL_ERROR};
    const auto encodes = [](const std::function<void(soundcomm_paras_t&)>& spoil) {
        const context_ptr ctx = make_context();
        spoil(*ctx->tx_paras);
        double_list frame(FRAME_LEN);
        return encode_with(ctx->tx_paras, message("x"), &frame, FRAME_LEN) == 0;
    };
    const crc_cfg unknown = {16, 2, 2};
    const std::string papr = "Fail to do PAPR reduction.";
    expect_refusals({
        {[&] { return add_crc(message("x").data(), MSG_LEN, &unknown) != nullptr; }, {"calulate crc failed"}},
        {[&] { return encodes([](auto& p) { p.punch_template->kept_len = 700; }); },
         {"Punch code failed.", "add_channel_code failed"}},
        {[&] { return encodes([](auto& p) { p.cfg.interleaver_cfg.stride = 0; }); }, {"interleaver_encode failed"}},
        {[&] { return encodes([](auto& p) { p.cfg.ofdm_cfg.papr = 4; }); }, {"Unknown papr reduction type.", papr}},
        {[&] { return encodes([](auto& p) { p.cfg.ofdm_cfg.papr = 2, p.cfg.ofdm_cfg.sc_num = 100; }); },
         {"Data size 384 can't be divided by sc num 100", papr}},
        {[&] { return encodes([](auto& p) { p.cfg.ofdm_cfg.papr = 2, p.frame.data_symbols = 7; }); }, {papr}},
        {[&] { return encodes([](auto& p) { p.frame.data_symbols = 5; }); }, {"FrameGenerate failed"}},
        {[&] { return encodes([](auto& p) { p.frame.data_symbols = 0; }); }, {"FrameGenerate failed"}},
    });
}

TEST(Encoder, GivesOneMessageOneFrameAndLeavesWhatLiesBehindIt)
{
    const log_capture log{KOSC_LEVEL_ERROR};
    const context_ptr ctx = make_context();
    double_list frame(FRAME_LEN + 2, 7.0);
    ASSERT_EQ(encode_with(ctx->tx_paras, message("same"), &frame, FRAME_LEN + 2), 0);
    double_list expected = encode(ctx.get(), message("same"));
    expected.resize(FRAME_LEN + 2, 7.0);
    EXPECT_EQ(frame, expected);
}

} // namespace
