#include "kosc/encoder.h"

#include "support/modem.h"

namespace {

TEST(Encoder, ReportsTheFirstFailingCheckAndTheStepThatFailed)
{
    const log_capture log{KOSC_LEVEL_ERROR};
    double_list frame(FRAME_LEN);
    const auto encodes = [&](const std::function<void(soundcomm_paras_t&)>& spoil) {
        const context_ptr ctx = make_context();
        spoil(*ctx->tx_paras);
        return soundcomm_encode(ctx->tx_paras, message("x").data(), MSG_LEN, frame.data(), FRAME_LEN) != -1;
    };
    const context_ptr ctx = make_context([](auto& c) { c.crc_cfg.put_crc = KOSC_CRC_AFTER_EVERY_PART; });
    const soundcomm_paras_t* const paras = ctx->tx_paras;
    const byte_list msg = message("x");
    const crc_cfg unknown = {16, 2, 2};
    const std::string papr = "Fail to do PAPR reduction.";
    expect_refusals({
        {[&] { return soundcomm_encode(nullptr, nullptr, 27, nullptr, 0) != -1; }, {"soundcomm_context_t is NULL"}},
        {[&] { return soundcomm_encode(paras, nullptr, 27, nullptr, 0) != -1; }, {"input is NULL"}},
        {[&] { return soundcomm_encode(paras, msg.data(), 27, nullptr, 0) != -1; }, {"output is NULL"}},
        {[&] { return soundcomm_encode(paras, msg.data(), 27, frame.data(), 11519) != -1; },
         {"output_len(11519) is less than frame_len(11520)"}},
        {[&] { return soundcomm_encode(paras, msg.data(), 27, frame.data(), 11520) != -1; },
         {"input_len(27) is not equal to msg_byte_len(28)"}},
        {[&] { return add_crc(msg.data(), MSG_LEN, &unknown) != nullptr; }, {"calulate crc failed"}},
        {[&] { return encodes([](auto& p) { p.punch_template->kept_len = 700; }); },
         {"Punch code failed.", "add_channel_code failed"}},
        {[&] { return encodes([](auto& p) { p.cfg.interleaver_cfg.stride = 0; }); }, {"interleaver_encode failed"}},
        {[&] { return encodes([](auto& p) { p.cfg.ofdm_cfg.papr = 4; }); }, {"Unknown papr reduction type.", papr}},
        {[&] { return encodes([](auto& p) { p.cfg.ofdm_cfg.papr = 2, p.cfg.ofdm_cfg.sc_num = 100; }); },
         {"Data size 384 can't be divided by sc num 100", papr}},
        {[&] { return encodes([](auto& p) { p.cfg.ofdm_cfg.papr = 2, p.frame.data_symbols = 7; }); }, {papr}},
        {[&] { return encodes([](auto& p) { p.frame.data_symbols = 5; }); }, {"FrameGenerate failed"}},
    });
    EXPECT_EQ(frame, double_list(FRAME_LEN));
}

} // namespace
