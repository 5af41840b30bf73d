#include "Log.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "LogCapture.h"

namespace {

class LogTest : public ::testing::Test {
protected:
    void SetUp() override { Log::SetMinLogLevel(1); }
    void TearDown() override { Log::SetMinLogLevel(1); }
};

TEST_F(LogTest, WritesOneLineWithLevelSourceLineAndText) {
    LogCapture capture;
    Log(1, "ipmi_event_log/Example", 42).Stream() << "read " << 3 << " records";
    EXPECT_EQ(capture.text(), "[1] ipmi_event_log/Example:42 read 3 records\n");
}

TEST_F(LogTest, WritesLevelsUpToTheMinimumLevelOnly) {
    LogCapture capture;
    Log::SetMinLogLevel(3);
    EXPECT_EQ(Log::GetMinLogLevel(), 3);
    Log(3, "s", 1).Stream() << "three";
    Log(4, "s", 2).Stream() << "four";
    EXPECT_EQ(capture.text(), "[3] s:1 three\n");
}

TEST_F(LogTest, LevelZeroSilencesFailuresToo) {
    LogCapture capture;
    Log::SetMinLogLevel(0);
    Log(1, "s", 1).Stream() << "failure";
    EXPECT_EQ(capture.text(), "");
}

TEST_F(LogTest, EscapesControlBytesDelAndBytesAboveItAndDoublesTheBackslash) {
    LogCapture capture;
    Log(1, "s", 7).Stream() << "code: " << '\0' << static_cast<char>(0xCB) << "\x1B[31m\x7F\n\\";
    EXPECT_EQ(capture.text(), "[1] s:7 code: \\x00\\xCB\\x1B[31m\\x7F\\x0A\\\\\n");
}

TEST_F(LogTest, WritesNothingWhenNothingWasStreamedButTheLineItself) {
    LogCapture capture;
    { Log log(1, "s", 9); }
    EXPECT_EQ(capture.text(), "[1] s:9 \n");
}

// The environment is read once, when the level is first needed, so each case runs in a fresh
// process of its own.
TEST(LogEnvironmentDeathTest, MinimumLevelComesFromTolmarLogLevel) {
    EXPECT_EXIT(
        {
            setenv("TOLMAR_LOG_LEVEL", "4", 1);
            std::exit(Log::GetMinLogLevel());
        },
        ::testing::ExitedWithCode(4), "");
}

TEST(LogEnvironmentDeathTest, MinimumLevelDefaultsToOne) {
    EXPECT_EXIT(
        {
            unsetenv("TOLMAR_LOG_LEVEL");
            std::exit(Log::GetMinLogLevel());
        },
        ::testing::ExitedWithCode(1), "");
}

TEST(LogEnvironmentDeathTest, UnreadableLevelFallsBackToOne) {
    EXPECT_EXIT(
        {
            setenv("TOLMAR_LOG_LEVEL", "verbose", 1);
            std::exit(Log::GetMinLogLevel());
        },
        ::testing::ExitedWithCode(1), "");
}

}  // namespace
