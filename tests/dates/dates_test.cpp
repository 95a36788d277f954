#include "dates/dates.h"

#include <string>
#include <vector>

#include "platform/platform.h"
#include "support/support.h"

namespace zb {
namespace {

// A clock that stands still and a screen that can be read; the rest is never
// asked for.
class StillPlatform final : public Platform {
  public:
    LocalTime now{1996, 2, 29, 4, 23, 59, 58};
    std::vector<std::string> shown;
    std::string logWhenShown;

    LocalTime Now() override { return now; }
    void Message(const char* caption, const char* text) override {
        shown.push_back(std::string(caption) + "|" + text);
        logWhenShown = test::ReadFile("test.log");
    }

    PlatformHandle Open(const char*, unsigned) override { return PlatformHandle::None; }
    bool Read(PlatformHandle, void*, uint32_t, uint32_t*) override { return false; }
    bool Write(PlatformHandle, const void*, uint32_t, uint32_t*) override { return false; }
    bool Seek(PlatformHandle, int64_t, SeekFrom, uint32_t*) override { return false; }
    bool SetEnd(PlatformHandle) override { return false; }
    bool Close(PlatformHandle) override { return false; }
    bool Delete(const char*) override { return false; }
    bool Lock(PlatformHandle, uint32_t, uint32_t) override { return false; }
    bool Unlock(PlatformHandle, uint32_t, uint32_t) override { return false; }
    uint32_t LastError() override { return 0; }
    int Rename(const char*, const char*) override { return 0; }
    bool Exists(const char*) override { return false; }
    void* Allocate(size_t) override { return nullptr; }
    void* Reallocate(void*, size_t) override { return nullptr; }
    void Free(void*) override {}
    void ProfileText(const char*, const char*, char* text, size_t) override { *text = '\0'; }
    int32_t ProfileNumber(const char*, const char*, int32_t fallback) override { return fallback; }
};

class DatesOnAStillClock : public test::LibraryTest {
  protected:
    void SetUp() override {
        LibraryTest::SetUp();
        previous = platform;
        platform = &still;
    }
    void TearDown() override {
        platform = previous;
        LibraryTest::TearDown();
    }
    StillPlatform still;

  private:
    Platform* previous = nullptr;
};

TEST_F(DatesOnAStillClock, Today) {
    int16_t year = 0, month = 0, day = 0, weekday = 0;
    EXPECT_EQ(ZBCDIGET(&year, &month, &day, &weekday), 0);
    EXPECT_EQ(year, 1996);
    EXPECT_EQ(month, 2);
    EXPECT_EQ(day, 29);
    EXPECT_EQ(weekday, 4);
    char text[20];
    EXPECT_EQ(ZBCDSGET(text, 3), 0);
    EXPECT_STREQ(text, "1996/060");
    EXPECT_EQ(ZBCDSGET(text, 15), 0);
    EXPECT_STREQ(text, "1996.02.29");
}

TEST_F(DatesOnAStillClock, Now) {
    int16_t hours = 0, minutes = 0, seconds = 0, hundredths = 99;
    EXPECT_EQ(ZBCTIGET(&hours, &minutes, &seconds, &hundredths), 0);
    EXPECT_EQ(hours, 23);
    EXPECT_EQ(minutes, 59);
    EXPECT_EQ(seconds, 58);
    EXPECT_EQ(hundredths, 0);
    char text[20];
    EXPECT_EQ(ZBCTSGET(text, 1), 0);
    EXPECT_STREQ(text, "23:59:58");
    EXPECT_EQ(ZBCTSGET(text, 2), 0);
    EXPECT_STREQ(text, "2359");
}

TEST_F(DatesOnAStillClock, AWrongLengthInStyleFourIsLoggedBeforeItIsShown) {
    StartLog();
    EXPECT_EQ(ZBCDSVALID(" 1996022", StyleYmd), -15);
    EXPECT_EQ(still.shown, (std::vector<std::string>{" 1996022|mauvaise Longueur"}));
    EXPECT_EQ(still.logWhenShown.substr(0, 4), "S2i\t");
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{"S2i", -15}, {"Svalid", -15}}));
}

TEST_F(DatesOnAStillClock, NothingElseIsShown) {
    int16_t year, month, day;
    EXPECT_EQ(ZBCDS2I(&year, &month, &day, "19960229", StyleYmd), 0);
    EXPECT_EQ(ZBCDS2I(&year, &month, &day, "        ", StyleYmd), 2);
    for (auto [text, style] :
         {std::pair{"19961301", 4}, {"1996022", 5}, {"1996022         ", 4}, {"1996022", 0}}) {
        EXPECT_LT(ZBCDS2I(&year, &month, &day, text, static_cast<int16_t>(style)), 0);
        ZBESCODE(0);
    }
    EXPECT_TRUE(still.shown.empty());
}

using MonthTable = test::LibraryTest;

TEST_F(MonthTable, TheLeapRuleSetsFebruary) {
    ZBCDILEAP(1996);
    EXPECT_EQ(MonthDays[2], 29);
    ZBCDILEAP(1900);
    EXPECT_EQ(MonthDays[2], 28);
}

TEST_F(MonthTable, WhoLooksAtAYearLeavesItsFebruary) {
    int16_t year, month, day, days;
    int32_t number;
    char text[20];
    auto ExpectFebruary = [](int days_) {
        EXPECT_EQ(MonthDays[2], days_);
        ZBESCODE(0);
        ZBCDILEAP(days_ == 29 ? 1995 : 1996);  // the other one, for the next step
    };
    ZBCDILEAP(1995);
    ZBCDI2L(&number, 1996, 1, 1);
    ExpectFebruary(29);
    ZBCDI2L(&number, 1995, 13, 1);  // refused after its year was looked at
    ExpectFebruary(28);
    ZBCDI2S(text, 16, 1996, 1, 1);
    ExpectFebruary(29);
    ZBCDS2I(&year, &month, &day, "19951301", StyleYmd);
    ExpectFebruary(28);
    ZBCDIPERM(&days, 1996, 2);
    ExpectFebruary(29);
    ZBCDL2I(&year, &month, &day, 74144);  // refused, in the year 203
    ExpectFebruary(28);
}

TEST_F(MonthTable, WhoDoesNotLookAtAYearLeavesFebruaryAlone) {
    int16_t year, month, day, days;
    int32_t number;
    char text[20];
    MonthDays[2] = 30;
    ZBCDIPERM(&days, 1996, 1);
    ZBCDL2I(&year, &month, &day, 1461);  // 31 December, known without a walk through the months
    ZBCDS2I(&year, &month, &day, "        ", StyleYmd);
    ZBESCODE(0);
    ZBCDS2I(&year, &month, &day, "-9960101", StyleYmd);
    ZBCDI2L(&number, 1996, 1, 1);  // a failure stands
    ZBCDI2S(text, 1, 1996, 1, 1);
    ZBESCODE(0);
    ZBCDI2L(nullptr, 1996, 1, 1);
    EXPECT_EQ(MonthDays[2], 30);
    ZBCDILEAP(1);
}

TEST_F(MonthTable, TheDayCountGoesByTheMonthsAsTheyStand) {
    ZBCDILEAP(1996);
    // 1995 * 365.25 is 728673.75; 31 and 29 days come before March.
    EXPECT_EQ(DayCount(1996, 3, 1), 728673 + 31 + 29 + 1 + 1721410);
    ZBCDILEAP(1995);
    EXPECT_EQ(DayCount(1996, 3, 1), 728673 + 31 + 28 + 1 + 1721410);
    EXPECT_EQ(DayCount(1, 1, 1), 1721411);
    EXPECT_EQ(DayCount(0, 1, 1), 1721410 + 1 - 365);
    EXPECT_EQ(DayCount(9999, 12, 31), 3651769 + 365 + 1721410);
}

TEST(DateStyles, Keywords) {
    constexpr std::pair<const char*, int> words[] = {
        {"GREGOR", 1},   {"GREGORL", 2},  {"JULIAN", 3},    {"YMD", 4},     {"DMY", 5},      {"GERMAN", 6},
        {"EURODATE", 6}, {"GERMANL", 7},  {"EURODATEL", 7}, {"BRITISH", 8}, {"BRITISHL", 9}, {"FRENCH", 10},
        {"FRENCHL", 11}, {"ITALIAN", 12}, {"ITALIANL", 13}, {"ENSI", 14},   {"ENSIL", 15}};
    for (auto& [word, style] : words) {
        EXPECT_EQ(StyleOfKeyword(word), style) << word;
        std::string lower = word;
        for (char& c : lower) c = static_cast<char>(c | 0x20);
        EXPECT_EQ(StyleOfKeyword(lower.c_str()), style) << lower;
    }
    EXPECT_EQ(StyleOfKeyword("EuroDate"), 6);
    for (const char* other : {"", "GERMA", "GERMANLL", "EURODATELX", " GERMAN", "GERMAN ", "JULIANL", "6"})
        EXPECT_EQ(StyleOfKeyword(other), 1) << other;
}

TEST(DateStyles, Lengths) {
    constexpr int lengths[] = {0, 8, 10, 8, 8, 6, 8, 10, 8, 10, 8, 10, 8, 10, 8, 10, 0};
    for (int style = 0; style <= 16; style++) EXPECT_EQ(StyleLength(style), lengths[style]);
    EXPECT_EQ(StyleLength(-1), 0);
}

}  // namespace
}  // namespace zb
