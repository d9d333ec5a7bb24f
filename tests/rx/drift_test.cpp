#include "kosc/drift.h"

#include <cmath>

#include <gtest/gtest.h>

#include "channels.h"
#include "support/modem.h"

namespace {

using namespace kosc_link;
using kosc_link::signal; // not the C library's
using smoother_ptr = owned<channel_smoother_t, channel_smoother_free>;
using search_ptr = owned<drift_search_t, drift_search_free>;

constexpr band SUBCARRIERS = {18000, 20953.125};

class Drift : public testing::Test {
protected:
    // The best explanation of a frame that starts where the synchronisation search would put it.
    drift_t best(signal sound, double snr_db)
    {
        const double variance = noise_variance(mean_power(sound, 0, FRAME_LEN), snr_db, SUBCARRIERS, 48000);
        sound.resize(FRAME_LEN);
        add_noise(&sound, variance, &random_);
        drift_t found{};
        EXPECT_EQ(drift_search_find(search_.get(), sound.data(), &found, 1), 1U);
        return found;
    }
    // The search finds the chirp of the pilot about 6.6 samples early for every 1000 ppm.
    static signal as_found(signal sound, double ppm)
    {
        const auto early = static_cast<std::ptrdiff_t>(std::lround(0.0066 * ppm));
        if (early >= 0) {
            sound.insert(sound.begin(), static_cast<size_t>(early), 0.0);
        } else {
            sound.erase(sound.begin(), sound.begin() - early);
        }
        return sound;
    }

    context_ptr ctx_ = make_context();
    smoother_ptr smoother_{channel_smoother_init(64, 1024, 256)};
    search_ptr search_{drift_search_init(ctx_->rx_paras, smoother_.get())};
    random_source random_{11};
    signal frame_ = encode(ctx_.get(), message("on the move"));
};

TEST_F(Drift, IsFoundWhereverItLies)
{
    for (const double ppm : {-4000.0, -1500.0, -190.0, 0.0, 40.0, 641.0, 2003.0, 4000.0}) {
        const drift_t found = best(as_found(drift(frame_, ppm, ppm, 0, 0), ppm), 3.0);
        // At 3 dB three pilots of 64 subcarriers tell the rate to some 10 ppm; a slipped turn would be 641 ppm off.
        EXPECT_NEAR(1e6 * found.rate, ppm, 60.0);
        EXPECT_NEAR(1e6 * found.bend * FRAME_LEN, 0.0, 250.0) << ppm;
        EXPECT_GT(found.coherence, 0.5) << ppm;
    }
}

TEST_F(Drift, IsFollowedWhileItChanges)
{
    const drift_t found = best(as_found(drift(frame_, 1500, 2500, 0, FRAME_LEN), 1650), 3.0);
    EXPECT_NEAR(1e6 * found.bend * FRAME_LEN, 1000.0, 250.0);
    EXPECT_NEAR(1e6 * (found.rate + found.bend * 3790), 2000.0, 60.0) << "in the middle of the frame";
}

TEST_F(Drift, DoesNotShowInNoise)
{
    for (int trial = 0; trial < 20; ++trial) {
        EXPECT_LT(best(frame_, -30.0).coherence, 0.25);
    }
}

TEST_F(Drift, ExplanationsComeBestFirstAndDiffer)
{
    drift_t found[5];
    ASSERT_EQ(drift_search_find(search_.get(), frame_.data(), found, 5), 5U);
    for (int i = 1; i < 5; ++i) {
        EXPECT_LE(found[i].coherence, found[i - 1].coherence);
        EXPECT_GT(std::fabs(found[i].rate - found[0].rate), 100e-6);
    }
    EXPECT_EQ(drift_search_find(search_.get(), frame_.data(), found, 0), 0U);
}

TEST_F(Drift, SearchNeedsItsParts)
{
    const smoother_ptr other{channel_smoother_init(60, 1024, 256)};
    EXPECT_EQ(drift_search_init(nullptr, smoother_.get()), nullptr);
    EXPECT_EQ(drift_search_init(ctx_->rx_paras, nullptr), nullptr);
    EXPECT_EQ(drift_search_init(ctx_->rx_paras, other.get()), nullptr);
}

} // namespace
