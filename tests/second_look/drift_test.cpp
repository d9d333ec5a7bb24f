#include "kosc/drift.h"

#include <cmath>

#include <gtest/gtest.h>

#include "channels.h"
#include "support/modem.h"

namespace {

using namespace kosc_link;

class Drift : public testing::Test {
protected:
    drift_t best(double first, double last, double snr_db) { return explanations(first, last, snr_db, 1).at(0); }

    // Explanations, the best first, of a frame that starts where the synchronisation search would put it: it finds the
    // chirp of the pilot about 6.6 samples early for every 1000 ppm.
    std::vector<drift_t> explanations(double first, double last, double snr_db, uint32_t max_found)
    {
        const double early = 0.0066 * (first + 0.15 * (last - first)); // by the drift at the chirp
        const double_list moving = drift(encode(ctx_.get(), message("on the move")), first, last, 0, FRAME_LEN);
        double_list sound(100);
        sound.insert(sound.end(), moving.begin(), moving.end());
        sound.erase(sound.begin(), sound.begin() + std::lround(100 - early));
        sound.resize(FRAME_LEN);
        add_noise(&sound, noise_variance(mean_power(sound, 0, FRAME_LEN), snr_db, NEAR_ULTRASONIC, 48000), &random_);
        std::vector<drift_t> found(max_found);
        found.resize(drift_search_find(search_.get(), sound.data(), found.data(), max_found));
        return found;
    }

    context_ptr ctx_ = make_context();
    smoother_ptr smoother_{channel_smoother_init(64, 1024, 256)};
    drift_search_ptr search_{drift_search_init(ctx_->rx_paras, smoother_.get())};
    random_source random_{11};
};

TEST_F(Drift, IsFoundWhereverItLiesAndFollowedWhileItChanges)
{
    const std::pair<double, double> cases[] = {{-4000, -4000}, {-190, -190}, {40, 40},    {641, 641},
                                               {2003, 2003},   {4000, 4000}, {1500, 2500}};
    for (const auto& [first, last] : cases) {
        SCOPED_TRACE(testing::Message() << first << " to " << last << " ppm");
        const drift_t found = best(first, last, 3.0);
        // At 3 dB three pilots of 64 subcarriers tell the rate to some 10 ppm; a slipped turn would be 641 ppm off.
        EXPECT_NEAR(1e6 * (found.rate + found.rate_change * 3790), (first + last) / 2, 60.0)
            << "in the middle of the frame";
        EXPECT_NEAR(1e6 * found.rate_change * FRAME_LEN, last - first, 250.0);
        EXPECT_GT(found.coherence, 0.5);
    }
    EXPECT_LT(best(0, 0, -30).coherence, 0.25) << "noise alone";
}

TEST_F(Drift, HasOtherExplanationsWhereOneIsWrong)
{
    const std::vector<drift_t> found = explanations(2003, 2003, 3.0, 4);
    ASSERT_EQ(found.size(), 4U);
    for (size_t i = 1; i < found.size(); ++i) {
        EXPECT_GE(found[i - 1].coherence, found[i].coherence);
        for (size_t j = 0; j < i; ++j) {
            const double apart = found[i].rate - found[j].rate + 3790 * (found[i].rate_change - found[j].rate_change);
            EXPECT_TRUE(std::fabs(apart) > 150e-6 ||
                        std::fabs(found[i].rate_change - found[j].rate_change) > 750e-6 / FRAME_LEN)
                << i << " is " << j << " again";
        }
    }
}

} // namespace
