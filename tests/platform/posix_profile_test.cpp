// Where the POSIX platform looks for the profile file, its clock and its message.
#include <filesystem>

#include "platform/fixture.h"

namespace test {
namespace {

class PosixProfile : public PlatformTest {
  protected:
    std::string Current() {
        char text[100];
        real.ProfileText("sort", "key", text, sizeof text);
        return text;
    }

    // Nothing outside the test's directory is looked at, but /etc.
    Environment settings{"XDG_CONFIG_HOME", (directory + "/none").c_str()};
    Environment home{"HOME", (directory + "/home").c_str()};
};

TEST_F(PosixProfile, TheFirstFileThatExistsIsRead) {
    std::filesystem::create_directories("home/.config");
    std::filesystem::create_directories("xdg");
    WriteFile("home/.config/QVDB4XX.INI", "[sort]\nkey=home\n");
    WriteFile("xdg/QVDB4XX.INI", "[sort]\nkey=xdg\n");
    EXPECT_EQ(Current(), "");
    settings.Set(nullptr);
    EXPECT_EQ(Current(), "home");
    settings.Set("");
    EXPECT_EQ(Current(), "home");
    settings.Set((directory + "/xdg").c_str());
    EXPECT_EQ(Current(), "xdg");
    WriteFile("QVDB4XX.INI", "[sort]\n");
    EXPECT_EQ(Current(), "");
    WriteFile("QVDB4XX.INI", "[sort]\nkey=here\n");
    EXPECT_EQ(Current(), "here");
}

TEST_F(PosixProfile, WhatIsNoFileEndsTheSearch) {
    std::filesystem::create_directories("xdg");
    WriteFile("xdg/QVDB4XX.INI", "[sort]\nkey=xdg\n");
    settings.Set((directory + "/xdg").c_str());
    std::filesystem::create_directory("QVDB4XX.INI");
    EXPECT_EQ(Current(), "");
}

TEST_F(PosixProfile, LongNamesOfDirectoriesAreNoDirectories) {
    settings.Set(std::string(100000, 'x').c_str());
    EXPECT_EQ(Current(), "");
}

TEST_F(PosixProfile, OnlyTheBeginningOfALargeFileIsLookedAt) {
    WriteFile("QVDB4XX.INI", "[sort]\n;" + Bytes(1 << 20, 'x') + "\nkey=1\n");
    EXPECT_EQ(Current(), "");
    WriteFile("QVDB4XX.INI", "[sort]\n;" + Bytes(60000, 'x') + "\nkey=1\n");
    EXPECT_EQ(Current(), "1");
}

using PosixClock = PlatformTest;

TEST_F(PosixClock, TheTimeIsLocal) {
    EXPECT_EQ(InAnotherProcess([&] {
                  Environment zone("TZ", "ABC-5:30");
                  tzset();
                  time_t seconds = time(nullptr);
                  zb::LocalTime now = real.Now();
                  struct tm utc {};
                  gmtime_r(&seconds, &utc);
                  int difference = (now.hour * 60 + now.minute) - (utc.tm_hour * 60 + utc.tm_min);
                  difference = (difference + 1440) % 1440;
                  EXPECT_TRUE(difference == 330 || difference == 331) << difference;
              }),
              0);
}

TEST(PosixMessage, IsALineOnStandardError) {
    testing::internal::CaptureStderr();
    zb::NativePlatform().Message("Date", "wrong %d length");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Date: wrong %d length\n");
}

}  // namespace
}  // namespace test
