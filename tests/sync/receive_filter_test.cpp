#include "kosc/receiver.h"

#include "support/modem.h"

namespace {

// Bands whose filter's poles lie on or outside the unit circle, and their nearest neighbours that are inside: what is
// said of a band is what becomes of a frame in it, some seconds after a click.
TEST(ReceiveFilter, IsSaidToBeUnstableWhereNothingIsReceived)
{
    const std::pair<uint32_t, count_list> cases[] = {{64, {1, 2, 3, 4, 384, 445, 446, 447}}, {32, {4, 6, 476, 477}}};
    for (const auto& [count, starts] : cases) {
        for (const uint32_t start : starts) {
            SCOPED_TRACE(testing::Message() << count << " subcarriers from " << start);
            const log_capture log{KOSC_LEVEL_WARN};
            const context_ptr ctx = make_context([&, n = count](auto& cfg) {
                cfg.ofdm_cfg.sc_start_idx = start;
                cfg.ofdm_cfg.sc_num = n;
            });
            EXPECT_TRUE(soundcomm_init_receive(ctx.get(), {0.4, 20, 1}, {2, 1, 48000}));
            const bool stable = (count == 64 && start > 3 && start < 446) || start == 6 || start == 476;
            EXPECT_EQ(logged().size(), stable ? 0U : 1U);
            const pcm sound =
                join({{1000}, silence(400000), render(encode(ctx.get(), message("here"))), silence(9000)});
            byte_list room(MSG_LEN);
            result_set_t results = {KOSC_DECODE_FIRST_TRACK, {room.data(), MSG_LEN, 0}, {}, {}};
            const log_capture quiet{0};
            soundcomm_receive(ctx.get(), sound.data(), static_cast<uint32_t>(sound.size()), &results);
            EXPECT_EQ(results.correct.count, stable ? 1U : 0U);
        }
    }
}

} // namespace
