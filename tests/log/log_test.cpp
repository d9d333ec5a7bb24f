#include "kosc/log.h"

#include <ctime>

#include <gtest/gtest.h>

#include "support/content.h"

namespace {

TEST(Log, LetsThroughWhatTheLevelAllows)
{
    for (const auto& [level, allowed] : {std::pair{0U, 0U}, {1U, 1U}, {2U, 2U}, {3U, 3U}, {4U, 4U}, {7U, 3U}}) {
        const log_capture log;
        soundcomm_set_log_level(level);
        EXPECT_EQ(log_level, std::min(level, 4u));
        log_level = level;                                              // as hosts may write it, past the setter
        EXPECT_EQ(ko_soundcommu_init(nullptr, nullptr), nullptr);       // INFO, ERROR
        EXPECT_EQ(conv_code_encode(nullptr, nullptr, 0).data, nullptr); // WARN
        EXPECT_NE(context_ptr{soundcomm_init(soundcomm_default_cfg(), soundcomm_default_cfg())}, nullptr); // DEBUG
        for (const auto& [rank, name] : {std::pair{1U, "ERROR"}, {2U, "WARN"}, {3U, "INFO"}, {4U, "DEBUG"}}) {
            EXPECT_EQ(!logged(name).empty(), rank <= allowed) << name << " at " << level; // DEBUG wants exactly 4
        }
    }
}

TEST(Log, FormatsLinesForTheCallbackOrStandardOutput)
{
    const log_capture log{0}; // only call sites look at the level
    log_msg(KOSC_LEVEL_ERROR, 312, "Fail %s %d", "to", 5);
    EXPECT_EQ(log_capture::lines(), text_list{"[ERROR][Fail to 5][312]\n"});
    soundcomm_config_log_time(1);
    const std::time_t before = std::time(nullptr);
    log_msg(KOSC_LEVEL_WARN, 9, "text");
    const std::string line = log_capture::lines().at(1);
    EXPECT_EQ(line.substr(20, 4) + line.substr(27), ",000][WARN][text][9]\n") << line; // six digits of milliseconds
    char stamp[32];
    std::strftime(stamp, sizeof stamp, "[%Y-%m-%d %H:%M:", std::localtime(&before));
    // time() may read a coarser clock than the stamp, so the last second of a minute says nothing.
    EXPECT_TRUE(line.rfind(stamp, 0) == 0 || before % 60 == 59) << line;

    soundcomm_config_log_time(0);
    soundcomm_set_log_callback(nullptr);
    testing::internal::CaptureStdout();
    log_msg(KOSC_LEVEL_DEBUG, 7, "100%% %s", "plain");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "[DEBUG][100% plain][7]\n");
}

TEST(Log, DropsEmptyMessagesAndLinesThatDoNotFit)
{
    const std::string none, too_long = "log_message: msg too long.\n", failed = "log_message: fail to log.\n";
    // Prefix and suffix have 13 characters: 4081 make a line of 4094, the longest there is.
    const std::pair<size_t, std::string> cases[] = {{0, failed},    {1, none},        {4081, none},   {4082, too_long},
                                                    {4083, failed}, {4087, too_long}, {4088, failed}, {9000, failed}};
    for (const auto& [length, complaint] : cases) {
        for (const uint32_t heap : {0u, 1u}) {
            const log_capture log;
            soundcomm_config_log_memory(heap);
            const std::string text(length, 'x');
            testing::internal::CaptureStderr();
            log_msg(KOSC_LEVEL_ERROR, 7, "%s", text.c_str());
            EXPECT_EQ(testing::internal::GetCapturedStderr(), complaint) << length << " characters, heap " << heap;
            EXPECT_EQ(log_capture::lines(), complaint.empty() ? text_list{"[ERROR][" + text + "][7]\n"} : text_list{});
        }
    }
}

TEST(Timer, CountsMilliseconds)
{
    timespec start{};
    timer_start(&start);
    start.tv_sec -= 2;
    start.tv_nsec -= 10000000;
    const long elapsed = timer_end(&start);
    EXPECT_TRUE(elapsed >= 2010 && elapsed < 60000) << elapsed; // however busy the machine
}

} // namespace
