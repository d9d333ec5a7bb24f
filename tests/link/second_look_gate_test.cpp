// A small slice of the link benchmark: counts that a loss of half a decibel would move by far more than the bands.
#include "link.h"

#include <gtest/gtest.h>

namespace {

using namespace kosc_link;
using kosc_link::signal; // not the C library's

constexpr uint32_t FRAMES = 60;
constexpr uint64_t SEED = uint64_t{77} << 32;
// Other compilers and C libraries round differently, which decides frames on the edge.
constexpr int BAND = 4;

struct slope_point {
    double snr_db;
    int at_once;
    int decoded;
};

void expect_counts(const char* name, const std::vector<slope_point>& points)
{
    log_level = 0;
    link_modem modem;
    std::vector<slope_point> counts = points;
    for (slope_point& count : counts) {
        count.at_once = count.decoded = 0;
    }
    for (uint32_t f = 0; f < FRAMES; ++f) {
        const link_channel& channel = *find_channel(name);
        const signal clean = modem.transmit(channel, SEED + f);
        for (slope_point& count : counts) {
            const outcome result = modem.receive(channel, clean, count.snr_db);
            EXPECT_FALSE(result.wrong) << name << " " << count.snr_db << " dB, frame " << f;
            count.at_once += result.decoded_at_once ? 1 : 0;
            count.decoded += result.decoded ? 1 : 0;
        }
    }
    for (size_t i = 0; i < points.size(); ++i) {
        SCOPED_TRACE(testing::Message() << name << " at " << points[i].snr_db << " dB");
        EXPECT_NEAR(counts[i].at_once, points[i].at_once, BAND);
        EXPECT_NEAR(counts[i].decoded, points[i].decoded, BAND);
    }
    log_level = KOSC_LEVEL_DEBUG;
}

TEST(LinkGate, DefaultReceiverHoldsItsSlope) { expect_counts("white", {{3.5, 23, 60}, {4.0, 42, 60}, {4.5, 51, 60}}); }

TEST(LinkGate, SecondLookHoldsItsSlope) { expect_counts("white", {{-1.0, 0, 27}, {-0.5, 0, 44}, {0.0, 0, 52}}); }

TEST(LinkGate, SecondLookHoldsItsSlopeThroughEchoesInMotion)
{
    expect_counts("echoes-1500", {{0.5, 0, 7}, {1.25, 0, 24}, {2.0, 0, 40}});
}

} // namespace
