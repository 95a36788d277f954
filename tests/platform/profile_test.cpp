// The profile file and the clock, alike on every platform.
#include "platform/fixture.h"

namespace test {
namespace {

class PlatformProfile : public PlatformTest {
  protected:
    // The text of a key in a profile file of these contents.
    std::string Text(const std::string& contents, const char* section = "sort", const char* key = "key",
                     size_t size = 100) {
        WriteProfile(contents);
        return Current(section, key, size);
    }
    // The same in the file that is there.
    std::string Current(const char* section = "sort", const char* key = "key", size_t size = 100) {
        std::string text(size + 1, '?');
        real.ProfileText(section, key, text.data(), size);
        EXPECT_EQ(text.back(), '?');
        return text.c_str();
    }
    int32_t Number(const std::string& value) {
        WriteProfile("[sort]\nkey=" + value + "\n");
        return real.ProfileNumber("sort", "key", 77);
    }

    // Nothing outside the test's directory is looked at, but /etc.
    Environment settings{"XDG_CONFIG_HOME", (directory + "/none").c_str()};
    Environment home{"HOME", (directory + "/home").c_str()};
};

TEST_F(PlatformProfile, WithoutAFileThereIsNoValue) {
    EXPECT_EQ(Current(), "");
    EXPECT_EQ(real.ProfileNumber("sort", "key", 77), 77);
}

TEST_F(PlatformProfile, SectionsAndKeysCompareWithoutRegardToCase) {
    EXPECT_EQ(Text("[SoRT]\r\nKeY=Value\r\n"), "Value");
    EXPECT_EQ(Text("[sort]\nkey=value", "SORT", "KEY"), "value");
}

TEST_F(PlatformProfile, OnlyTheSectionCounts) {
    EXPECT_EQ(Text("key=0\n[other]\nkey=1\n[sort]\nkey2=2\n[more]\nkey=3\n"), "");
    EXPECT_EQ(Text("[other]\nkey=1\n[sort]\nkey=2\n[more]\nkey=3\n"), "2");
    EXPECT_EQ(Text("[sort]\n[sort]\nkey=2\n"), "");
}

TEST_F(PlatformProfile, TheFirstKeyCounts) { EXPECT_EQ(Text("[sort]\nkey=1\nkey=2\n"), "1"); }

TEST_F(PlatformProfile, BlanksAroundNamesAndValuesGo) {
    EXPECT_EQ(Text("  [ sort ]  \n \t key \t = \t a b \t\n"), "a b");
}

TEST_F(PlatformProfile, OnePairOfQuotesGoes) {
    EXPECT_EQ(Text("[sort]\nkey= \" a \" \n"), " a ");
    EXPECT_EQ(Text("[sort]\nkey='a'\n"), "a");
    EXPECT_EQ(Text("[sort]\nkey=\"\"a\"\"\n"), "\"a\"");
    EXPECT_EQ(Text("[sort]\nkey=\"a'\n"), "\"a'");
    EXPECT_EQ(Text("[sort]\nkey=\"\n"), "\"");
    EXPECT_EQ(Text("[sort]\nkey=\"\"\n"), "");
}

TEST_F(PlatformProfile, CommentLinesAreSkippedAndEqualsSignsBelongToTheValue) {
    EXPECT_EQ(Text("[sort]\n;key=1\n ; key=2\nkey=3;4=5\n"), "3;4=5");
}

TEST_F(PlatformProfile, LinesThatMakeNoSenseAreSkipped) {
    EXPECT_EQ(Text("[sort\nkey\n=1\n\n[]\n[sort]\nkey=9\n"), "9");
    EXPECT_EQ(Text("[]\n=1\nkey\n\r\n[sort]\nother\n=2\nkey=9"), "9");
    EXPECT_EQ(Text("[sort] more]\nkey=9\n", "sort] more"), "9");
    EXPECT_EQ(Text("[sort]more\nkey=9\n"), "9");
    EXPECT_EQ(Text("[sort]\n[unended\nkey=9\n"), "9");
}

TEST_F(PlatformProfile, AKeyWithoutAnEqualsSignHasNoValue) {
    EXPECT_EQ(Text("[sort]\nkey\nkey=9\n"), "");
    EXPECT_EQ(real.ProfileNumber("sort", "key", 77), 77);
}

TEST_F(PlatformProfile, ValuesAreCutToTheBuffer) {
    EXPECT_EQ(Text("[sort]\nkey=EURODATEL\n", "sort", "key", 10), "EURODATEL");
    EXPECT_EQ(Text("[sort]\nkey=EURODATELX\n", "sort", "key", 10), "EURODATEL");
    EXPECT_EQ(Text("[sort]\nkey=EURODATEL\n", "sort", "key", 1), "");
}

TEST_F(PlatformProfile, Numbers) {
    EXPECT_EQ(Number("0"), 0);
    EXPECT_EQ(Number("1"), 1);
    EXPECT_EQ(Number(" 65536 "), 65536);
    EXPECT_EQ(Number("-12"), -12);
    EXPECT_EQ(Number("12abc"), 12);
    EXPECT_EQ(Number("\"5\""), 5);
    EXPECT_EQ(Number("yes"), 0);
    EXPECT_EQ(Number("+5"), 5);
    EXPECT_EQ(Number("- 5"), 0);
    EXPECT_EQ(Number("\" 7\""), 7);
    EXPECT_EQ(Number(""), 77);
    EXPECT_EQ(Number("0x1Fg"), 0x1F);
    EXPECT_EQ(Number("-0x10"), -16);
    EXPECT_EQ(Number("0X10"), 0);
    EXPECT_EQ(Number("0b102"), 2);
    EXPECT_EQ(Number("0o19"), 1);
    EXPECT_EQ(Number("019"), 19);
    EXPECT_EQ(Number("4294967297"), 1);
    EXPECT_EQ(Number(std::string(5000, '9')), Number(std::string(63, '9')));
}

TEST_F(PlatformProfile, HostileFiles) {
    EXPECT_EQ(Text(Bytes(1 << 20, 'x')), "");
    EXPECT_EQ(Text(Bytes(1 << 20, '[')), "");
    EXPECT_EQ(Text(Bytes(1 << 20, '\n')), "");
    EXPECT_EQ(Text(Fill(1 << 20)), "");
    EXPECT_EQ(Text("[sort]\nkey=" + Bytes(1 << 20, 'x'), "sort", "key", 50), Bytes(49, 'x'));
    EXPECT_EQ(Text("[sort]\n;" + Bytes(60000, 'x') + "\nkey=1\n"), "1");
}

class PlatformClock : public PlatformTest {
  protected:
    std::string Date() {
        zb::LocalTime now = real.Now();
        char text[40];
        snprintf(text, sizeof text, "%d-%d-%d %d", now.year, now.month, now.day, now.dayOfWeek);
        return text;
    }
    std::string ClockDate() {
        time_t seconds = time(nullptr);
        struct tm t = *localtime(&seconds);
        char text[60];
        snprintf(text, sizeof text, "%d-%d-%d %d", t.tm_year + 1900, t.tm_mon + 1, t.tm_mday, t.tm_wday);
        return text;
    }
    std::string DateWith(const char* today) {
        Environment variable("ZB_TODAY", today);
        return Date();
    }
};

TEST_F(PlatformClock, TodayIsReplaced) {
    EXPECT_EQ(DateWith("1996-02-29"), "1996-2-29 4");
    EXPECT_EQ(DateWith("2000-02-29"), "2000-2-29 2");
    EXPECT_EQ(DateWith("0001-01-01"), "1-1-1 1");
    EXPECT_EQ(DateWith("9999-12-31"), "9999-12-31 5");
    EXPECT_EQ(DateWith("1970-01-01"), "1970-1-1 4");
    EXPECT_EQ(DateWith("2023-03-01"), "2023-3-1 3");
}

TEST_F(PlatformClock, WhatIsNoDateIsIgnored) {
    for (const char* text : {"", "1996", "1996-2-29", "1996-02-30", "1995-02-29", "1900-02-29", "1996-13-01",
                             "1996-00-10", "1996-01-00", "1996-04-31", "1996/01/01", "1996-01-01 ",
                             " 1996-01-01", "19960101", "-996-01-01", "0000-01-01", "1996-01-0x"})
        EXPECT_EQ(DateWith(text), ClockDate()) << text;
    EXPECT_EQ(DateWith(nullptr), ClockDate());
}

TEST_F(PlatformClock, TheTimeOfDayStaysTheClocks) {
    Environment variable("ZB_TODAY", "1996-02-29");
    // Around midnight the clock may move on between the two.
    for (int tries = 0; tries < 2; tries++) {
        time_t seconds = time(nullptr);
        struct tm t = *localtime(&seconds);
        zb::LocalTime now = real.Now();
        int clock = t.tm_hour * 3600 + t.tm_min * 60 + t.tm_sec;
        int ours = now.hour * 3600 + now.minute * 60 + now.second;
        if (ours < clock) continue;
        EXPECT_LE(ours - clock, 60);
        return;
    }
    FAIL();
}

}  // namespace
}  // namespace test
