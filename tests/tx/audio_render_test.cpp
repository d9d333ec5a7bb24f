#include "kosc/audio_render.h"

#include <cmath>

#include "support/modem.h"

namespace {

TEST(AudioRender, ScalesClipsAndTruncates)
{
    const std::tuple<audio_gain_t, double_list, pcm> cases[] = {
        {{0, 40000.0}, {1.0, -1.0}, {INT16_MAX, INT16_MIN}},
        {{0, 1.0}, {32767.9, -32768.9, 32766.9, -0.9, 1e300}, {INT16_MAX, INT16_MIN, 32766, 0, INT16_MAX}},
        {{1, 0.8}, {0.0, -0.0}, {0, 0}},
        {{0, 1.0}, {INFINITY, -INFINITY, NAN, 5.0}, {INT16_MAX, INT16_MIN, 0, 5}},
        {{1, 0.8}, {INFINITY, 5.0}, {0, 0}},
        {{1, NAN}, {1.0}, {0}},
    };
    for (const auto& [gain, samples, expected] : cases) {
        EXPECT_EQ(render(samples, gain), expected);
    }
    EXPECT_EQ(calc_peak_scale(double_list{1.0, -4.0}.data(), 2, 0.5), 32767 / 4.0 * 0.5);
}

TEST(AudioRender, ReportsTheFirstFailingCheckAndWritesNothing)
{
    const log_capture log;
    const double sample = 1.0;
    int16_t sound = 99;
    const auto make = [&](bool in, bool out, uint32_t bytes) {
        return soundcomm_make_audio({bytes, 1, 48000}, {1, 1}, in ? &sample : nullptr, 1, out ? &sound : nullptr);
    };
    expect_refusals({
        {[&] { return make(false, false, 3); }, {"input is null."}},
        {[&] { return make(true, false, 3); }, {"output is null."}},
        {[&] { return make(true, true, 3); }, {"Only 2 bytes (16bit) is supported."}},
    });
    EXPECT_EQ(sound, 99);
}

} // namespace
