#include <cstdio>
#include <cstring>
#include <ctime>
#include <random>

#include "support/support.h"

namespace test {
namespace {

struct Time {
    int hours, minutes, seconds;
    bool operator==(const Time&) const = default;
};
std::ostream& operator<<(std::ostream& out, const Time& time) {
    return out << time.hours << ':' << time.minutes << ':' << time.seconds;
}

class Times : public LibraryTest {
  protected:
    // Parses a text; what the call leaves alone stays -99.
    int Parse(const char* from, int style) {
        int16_t h = -99, m = -99, s = -99;
        int code = ZBCTS2I(&h, &m, &s, from, static_cast<int16_t>(style));
        EXPECT_EQ(ZBECODE(), code);
        time = {h, m, s};
        return code;
    }
    int Refused(const char* from, int style) {
        int code = Parse(from, style);
        ZBESCODE(0);
        return code;
    }
    void ExpectFailure(int32_t result, int code, std::vector<std::string> units) {
        std::vector<LogEntry> lines;
        for (auto& unit : units) lines.push_back({unit, code});
        EXPECT_EQ(result, code);
        EXPECT_EQ(ZBECODE(), code);
        EXPECT_EQ(Log(), lines);
        StartLog();
        ZBESCODE(0);
    }

    Time time{};
    char text[20] = "untouched";
    static constexpr Time None{-99, -99, -99};
};

TEST_F(Times, TheLastSecondOfTheDayIsATimeAndHour24IsNot) {
    EXPECT_EQ(Parse("23:59:59", 1), 0);
    EXPECT_EQ(time, (Time{23, 59, 59}));
    EXPECT_EQ(Parse("24:00:00", 1), -16);
    EXPECT_EQ(time, (Time{24, 0, 0}));
}

TEST_F(Times, TheHourMayStartWithABlankButNotBeShort) {
    EXPECT_EQ(Parse(" 9:05:00", 1), 0);
    EXPECT_EQ(time, (Time{9, 5, 0}));
    EXPECT_EQ(Parse("9:05:00", 1), -16);
    EXPECT_EQ(time, None);
}

TEST_F(Times, TheShortStyleHasNoSeconds) {
    EXPECT_EQ(Parse("0905", 2), 0);
    EXPECT_EQ(time, (Time{9, 5, 0}));
    ASSERT_EQ(ZBCTI2S(text, 2, 9, 5, 59), 0);
    EXPECT_STREQ(text, "0905");
}

TEST_F(Times, TheShortStyleTakesNoBlankInFront) {
    EXPECT_EQ(Parse(" 905", 2), -16);
    // "90" was scanned first.
    EXPECT_EQ(time, (Time{90, 5, 0}));
}

TEST_F(Times, DifferenceAcrossTheDayInEitherOrder) {
    uint32_t seconds = 0;
    ASSERT_EQ(ZBCTSDIFF(&seconds, "23:59:59", 1, "00:00:00", 1), 0);
    EXPECT_EQ(seconds, 86399u);
    ASSERT_EQ(ZBCTSDIFF(&seconds, "00:00:00", 1, "23:59:59", 1), 0);
    EXPECT_EQ(seconds, 86399u);
}

TEST_F(Times, DifferenceBetweenStyles) {
    uint32_t seconds = 0;
    ASSERT_EQ(ZBCTSDIFF(&seconds, "10:01:01", 1, "0900", 2), 0);
    EXPECT_EQ(seconds, 3661u);
    ASSERT_EQ(ZBCTSDIFF(&seconds, "0900", 2, "0900", 2), 0);
    EXPECT_EQ(seconds, 0u);
}

TEST_F(Times, UnknownStyles) {
    StartLog();
    ExpectFailure(ZBCTSVALID("23:59:59", 3), -12, {"Ts2i", "Tsvalid"});
    for (int style : {-1, 0, 3}) {
        EXPECT_EQ(Refused("x", style), -12);
        EXPECT_EQ(time, None);
    }
}

TEST_F(Times, ATextThatOnlyScansIsRefusedAndItsValuesStored) {
    EXPECT_EQ(Refused("09:5:00 ", 1), -16);
    EXPECT_EQ(time, (Time{9, 5, 0}));
    EXPECT_EQ(Refused("-5:00:00", 1), -16);  // prints the same, but is no time
    EXPECT_EQ(time, (Time{-5, 0, 0}));
    EXPECT_EQ(Refused("+5:00:00", 1), -16);
    EXPECT_EQ(time, (Time{5, 0, 0}));
    EXPECT_EQ(Refused("  9:05:0", 1), -16);
    EXPECT_EQ(time, (Time{9, 5, 0}));
    EXPECT_EQ(Refused("12:60:99", 1), -16);
    EXPECT_EQ(time, (Time{12, 60, 99}));
    EXPECT_EQ(Refused("2460", 2), -16);
    EXPECT_EQ(time, (Time{24, 60, 0}));
    EXPECT_EQ(Refused("1 2 ", 2), -16);
    EXPECT_EQ(time, (Time{1, 2, 0}));
}

TEST_F(Times, ATextThatDoesNotScanStoresNothingButTheShortStylesSeconds) {
    EXPECT_EQ(Refused("09.05.00", 1), -16);
    EXPECT_EQ(time, None);
    EXPECT_EQ(Refused("09:05:xx", 1), -16);
    EXPECT_EQ(time, None);
    EXPECT_EQ(Refused("09xx", 2), -16);
    EXPECT_EQ(time, (Time{-99, -99, 0}));
    EXPECT_EQ(Refused("09055", 2), -16);
    EXPECT_EQ(time, None);
    EXPECT_EQ(Refused("", 1), -16);
    EXPECT_EQ(Refused("", 2), -16);
    EXPECT_EQ(time, None);
}

TEST_F(Times, EveryTimeOfTheDayThereAndBack) {
    for (int h = 0; h < 24; h++)
        for (int m = 0; m < 60; m++)
            for (int s = 0; s < 60; s += 7) {
                char expected[40];
                snprintf(expected, sizeof expected, "%02d:%02d:%02d", h, m, s);
                ASSERT_EQ(ZBCTI2S(text, 1, static_cast<int16_t>(h), static_cast<int16_t>(m),
                                  static_cast<int16_t>(s)),
                          0);
                ASSERT_STREQ(text, expected);
                ASSERT_EQ(Parse(text, 1), 0);
                ASSERT_EQ(time, (Time{h, m, s}));
                snprintf(expected, sizeof expected, "%02d%02d", h, m);
                ASSERT_EQ(ZBCTI2S(text, 2, static_cast<int16_t>(h), static_cast<int16_t>(m),
                                  static_cast<int16_t>(s)),
                          0);
                ASSERT_STREQ(text, expected);
                ASSERT_EQ(Parse(text, 2), 0);
                ASSERT_EQ(time, (Time{h, m, 0}));
            }
}

// What a text comes to by the C library's own scanner and printer.
int ParsedByLibrary(const char* from, int style, Time& time) {
    char printed[60];
    if (style == 1) {
        int h, m, s;
        if (strlen(from) != 8 || sscanf(from, "%2d:%2d:%2d", &h, &m, &s) != 3) return -16;
        time = {h, m, s};
        snprintf(printed, sizeof printed, "%02d:%02d:%02d", h, m, s);
        if (*from == ' ') *printed = ' ';
    } else {
        if (strlen(from) != 4) return -16;
        time.seconds = 0;
        int h, m;
        if (sscanf(from, "%2d%2d", &h, &m) != 2) return -16;
        time = {h, m, 0};
        snprintf(printed, sizeof printed, "%02d%02d", h, m);
    }
    if (strcmp(from, printed) != 0) return -16;
    bool inRange = time.hours >= 0 && time.hours <= 23 && time.minutes >= 0 && time.minutes <= 59 &&
                   time.seconds >= 0 && time.seconds <= 59;
    return inRange ? 0 : -16;
}

TEST_F(Times, AgreesWithTheScannerOnRandomTexts) {
    std::mt19937 random(86400);
    const std::string letters = "0123456789:  +-\t:0123456789x:";
    int taken = 0;
    for (int i = 0; i < 100000; i++) {
        int style = static_cast<int>(1 + random() % 2);
        size_t length = style == 1 ? 8 : 4;
        std::string from(length, ' ');
        for (char& c : from) c = letters[random() % letters.size()];
        // Most keep their colons, or few would scan.
        if (style == 1 && random() % 4) {
            for (char& c : from)
                if (c == ':') c = '1';
            from[1 + random() % 2] = from[4 + random() % 2] = ':';
        }
        Time expected = None;
        int code = ParsedByLibrary(from.c_str(), style, expected);
        // Exactly sized, so that a byte too far is seen.
        std::vector<char> exact(from.c_str(), from.c_str() + length + 1);
        ASSERT_EQ(Refused(exact.data(), style), code) << "'" << from << "'";
        ASSERT_EQ(time, expected) << "'" << from << "'";
        taken += code == 0;
    }
    EXPECT_GT(taken, 1000);
}

TEST_F(Times, PrintingChecksTheTimeBeforeTheStyle) {
    StartLog();
    constexpr int16_t wrong[][3] = {{-1, 0, 0}, {24, 0, 0}, {0, -1, 0}, {0, 60, 0}, {0, 0, -1}, {0, 0, 60}};
    for (auto& [h, m, s] : wrong)
        for (int16_t style = 0; style <= 3; style++)
            ExpectFailure(ZBCTI2S(text, style, h, m, s), -16, {"Ti2s"});
    for (int16_t style : {-1, 0, 3}) ExpectFailure(ZBCTI2S(text, style, 0, 0, 0), -12, {"Ti2s"});
    EXPECT_STREQ(text, "untouched");
}

TEST_F(Times, NullPointers) {
    StartLog();
    int16_t a = -1, b = -1, c = -1;
    ExpectFailure(ZBCTI2S(nullptr, 3, 24, 0, 0), -21, {"Ti2s"});
    ExpectFailure(ZBCTS2I(nullptr, &b, &c, "0905", 2), -21, {"Ts2i"});
    ExpectFailure(ZBCTS2I(&a, nullptr, &c, "0905", 2), -21, {"Ts2i"});
    ExpectFailure(ZBCTS2I(&a, &b, nullptr, "0905", 2), -21, {"Ts2i"});
    ExpectFailure(ZBCTS2I(&a, &b, &c, nullptr, 3), -21, {"Ts2i"});
    ExpectFailure(ZBCTSVALID(nullptr, 1), -21, {"Ts2i", "Tsvalid"});
    int16_t d = -1;
    ExpectFailure(ZBCTIGET(nullptr, &b, &c, &d), -21, {"Tiget"});
    ExpectFailure(ZBCTIGET(&a, nullptr, &c, &d), -21, {"Tiget"});
    ExpectFailure(ZBCTIGET(&a, &b, nullptr, &d), -21, {"Tiget"});
    ExpectFailure(ZBCTIGET(&a, &b, &c, nullptr), -21, {"Tiget"});
    ExpectFailure(ZBCTSGET(nullptr, 3), -21, {"Ti2s", "Tsget"});
    ExpectFailure(ZBCTSGET(text, 3), -12, {"Ti2s", "Tsget"});
    EXPECT_EQ((Time{a, b, c}), (Time{-1, -1, -1}));
    EXPECT_EQ(d, -1);
    EXPECT_STREQ(text, "untouched");
}

TEST_F(Times, DifferenceLooksAtItsOutputAfterBothTexts) {
    StartLog();
    uint32_t seconds = 99;
    ExpectFailure(ZBCTSDIFF(nullptr, "24:00:00", 1, "00:00:00", 1), -16, {"Ts2i", "Tsdiff"});
    ExpectFailure(ZBCTSDIFF(nullptr, "00:00:00", 1, "24:00:00", 1), -16, {"Ts2i", "Tsdiff"});
    ExpectFailure(ZBCTSDIFF(nullptr, "00:00:00", 1, "00:00:00", 1), -21, {"Tsdiff"});
    ExpectFailure(ZBCTSDIFF(&seconds, "00:00:00", 1, "00:00:00", 3), -12, {"Ts2i", "Tsdiff"});
    EXPECT_EQ(seconds, 99u);
}

TEST_F(Times, AStandingFailureIsReturnedWithoutActingOrLogging) {
    StartLog();
    ZBESCODE(-33);
    int16_t a = -1, b = -1, c = -1, d = -1;
    uint32_t seconds = 99;
    EXPECT_EQ(ZBCTI2S(text, 1, 9, 5, 0), -33);
    EXPECT_EQ(ZBCTS2I(&a, &b, &c, "0905", 2), -33);
    EXPECT_EQ(ZBCTS2I(nullptr, nullptr, nullptr, nullptr, 2), -33);
    EXPECT_EQ(ZBCTSVALID("0905", 2), -33);
    EXPECT_EQ(ZBCTSDIFF(&seconds, "0905", 2, "0905", 2), -33);
    EXPECT_EQ(ZBCTIGET(&a, &b, &c, &d), -33);
    EXPECT_EQ(ZBCTSGET(text, 1), -33);
    EXPECT_EQ((Time{a, b, c}), (Time{-1, -1, -1}));
    EXPECT_EQ(d, -1);
    EXPECT_EQ(seconds, 99u);
    EXPECT_STREQ(text, "untouched");
    EXPECT_TRUE(Log().empty());
}

TEST_F(Times, SuccessClearsAWarning) {
    ZBESCODE(5);
    EXPECT_EQ(Parse("0905", 2), 0);
}

TEST_F(Times, NowIsTheClocksLocalTime) {
    int16_t h, m, s, hundredths = 99;
    time_t before, after;
    do {
        before = ::time(nullptr);
        ASSERT_EQ(ZBCTIGET(&h, &m, &s, &hundredths), 0);
        ASSERT_EQ(ZBCTSGET(text, 1), 0);
        after = ::time(nullptr);
    } while (before != after);
    tm now = *localtime(&before);
    EXPECT_EQ((Time{h, m, s}), (Time{now.tm_hour, now.tm_min, now.tm_sec}));
    EXPECT_EQ(hundredths, 0);
    ASSERT_EQ(Parse(text, 1), 0);
    EXPECT_EQ(time, (Time{h, m, s}));
}

}  // namespace
}  // namespace test
