#include "kosc/bands.h"

#include "support/modem.h"

namespace {

TEST(Bands, AreFoundByNameAndByTheNearestSubcarrier)
{
    const std::tuple<const char*, const char*, uint32_t> cases[] = {
        {"telephone", "telephone", 7},
        {"near-ultrasonic", "near-ultrasonic", 384},
        {"328", "telephone", 7},
        {"2000", "voice", 43},
        {"2039.07", "", 44},
        {"2039.05", "voice", 43},
        {"257.9", "", 6},
        {"00020554.6", "", 438},
    };
    for (const auto& [text, name, first] : cases) {
        SCOPED_TRACE(text);
        ko_soundcommu_band_t band{};
        ASSERT_EQ(ko_soundcommu_find_band(text, &band), 0);
        EXPECT_STREQ(band.name, name);
        EXPECT_EQ(band.first_subcarrier, first);
        EXPECT_EQ(band.low_hz, first * 46.875);
        EXPECT_EQ(band.high_hz, band.low_hz + 2953.125);
    }
    double lowest = 0;
    for (uint32_t i = 0; ko_soundcommu_get_band(i) != nullptr; ++i) {
        const ko_soundcommu_band_t& listed = *ko_soundcommu_get_band(i);
        ko_soundcommu_band_t found{};
        EXPECT_EQ(ko_soundcommu_find_band(listed.name, &found), 0);
        EXPECT_EQ(found.first_subcarrier, listed.first_subcarrier);
        EXPECT_LT(std::exchange(lowest, listed.low_hz), listed.low_hz);
    }
    EXPECT_EQ(lowest, 18000);
}

TEST(Bands, RefuseWhatIsNoneWithOneSentence)
{
    const log_capture log{KOSC_LEVEL_ERROR};
    ko_soundcommu_band_t band{"kept", "", 1, 1, 1};
    soundcomm_cfg_t cfg{};
    std::vector<refusal> cases{
        {[&] { return ko_soundcommu_find_band(nullptr, &band) == 0; }, {"text or band is NULL"}},
        {[&] { return ko_soundcommu_find_band("voice", nullptr) == 0; }, {"text or band is NULL"}},
        {[&] { return soundcomm_cfg_for_band(384, nullptr); }, {"cfg is NULL"}},
    };
    std::string names;
    for (uint32_t i = 0; ko_soundcommu_get_band(i) != nullptr; ++i) {
        names += (i == 0 ? "" : ", ") + std::string{ko_soundcommu_get_band(i)->name};
    }
    for (const char* const text : {"", "Voice", "voice ", "-2000", "2e3", ".5", "2000Hz", "nan", "inf", "0x800"}) {
        cases.push_back(
            {[=, &band] { return ko_soundcommu_find_band(text, &band) == 0; },
             {"no band is called " + std::string{text} + "; a band is " + names + " or where it begins in Hz"}});
    }
    const auto outside = [](const char* first) {
        return text_list{std::string{"a band from subcarrier "} + first +
                         " on does not lie between 250 and 23500 Hz; the first subcarrier is 6 to 438"};
    };
    const std::pair<const char*, const char*> others[] = {{"0", "0"}, {"257.8", "5"}, {"20555", "439"}};
    for (const auto& other : others) {
        cases.push_back({[&] { return ko_soundcommu_find_band(other.first, &band) == 0; }, outside(other.second)});
    }
    cases.push_back(
        {[&] { return ko_soundcommu_find_band(std::string(400, '9').c_str(), &band) == 0; }, outside("1000000")});
    cases.push_back({[&] { return soundcomm_cfg_for_band(UINT32_MAX, &cfg); }, outside("4294967295")});
    expect_refusals(cases);
    EXPECT_STREQ(band.name, "kept");
    EXPECT_EQ(cfg.msg_byte_len, 0U);
}

} // namespace
