// Start and stop, memory blocks, codes and the log, through the interface alone.
#include <cstring>
#include <fstream>
#include <sstream>

#include "support/environment.h"
#include "support/support.h"

namespace test {
namespace {

using Core = LibraryTest;

// The library not started.
class Detached : public DirectoryTest {
  protected:
    void TearDown() override { ZBDTERM(); }
};

// The library started by a profile of the test's own.
class Profile : public Detached {
  protected:
    // The style after a start with this text behind "datesort=".
    int StyleBy(const std::string& value, int argument = 0) {
        WriteProfile("[sort]\ndatesort=" + value + "\n");
        return StyleAfterStart(argument);
    }
    int StyleAfterStart(int argument) {
        uint16_t style = 99;
        char name[64];
        EXPECT_EQ(ZBDINIT(100, static_cast<uint8_t>(argument)), 0);
        EXPECT_EQ(ZBCDGSTYLE(&style, name), 0);
        return style;
    }

    Environment settings{"XDG_CONFIG_HOME", directory.c_str()};
};

class Blocks : public LibraryTest {
  protected:
    char* Address(ZbBlock block) {
        void* address = this;
        EXPECT_EQ(_ZBMLOCK(&address, block), 0);
        return static_cast<char*>(address);
    }
    ZbBlock handle = 0;
};

class Log : public LibraryTest {};

TEST_F(Detached, CodesAreNotAttached) {
    EXPECT_EQ(ZBECODE(), -59);
    EXPECT_EQ(ZBESCODE(0), -59);
    EXPECT_EQ(ZBESCODE(-4), -59);
    EXPECT_EQ(ZBECODE(), -59);
    char name[30] = "test.log";
    EXPECT_EQ(ZBESLOG(1, name), -59);
    EXPECT_EQ(ZBDTERM(), -59);
    EXPECT_EQ(ZBDQCLOSE(), -59);
    EXPECT_EQ(ZBDVERSION(3), 0);
}

TEST_F(Detached, BlocksNeedNoLibrary) {
    ZbBlock handle = 0;
    void* address = nullptr;
    EXPECT_EQ(_ZBMALLOC(&handle, 10), 0);
    EXPECT_EQ(_ZBMLOCK(&address, handle), 0);
    EXPECT_EQ(ZBMFREE(address), 0);
    EXPECT_EQ(_ZBMFREE(handle), -59);
}

TEST_F(Detached, ATableSizeBelowFiveLeavesAClientWithoutATable) {
    EXPECT_EQ(ZBDINIT(4, 0), -13);
    EXPECT_EQ(ZBECODE(), -13);
    EXPECT_EQ(ZBDTERM(), 0);
    EXPECT_EQ(ZBECODE(), -59);
    EXPECT_EQ(ZBDINIT(4, 0), -13);
    EXPECT_EQ(ZBDINIT(100, 0), 0);
    EXPECT_EQ(ZBECODE(), 0);
}

TEST_F(Detached, NegativeTableSizes) {
    EXPECT_EQ(ZBDINIT(-1, 0), -13);
    EXPECT_EQ(ZBDINIT(-32768, 0), -13);
    EXPECT_EQ(ZBDINIT(0, 0), -13);
    EXPECT_EQ(ZBDINIT(5, 0), 0);
}

TEST_F(Detached, StartsAndStopsInAnyNumber) {
    for (int i = 0; i < 50; i++) EXPECT_EQ(ZBDINIT(100, 0), 0);
    EXPECT_EQ(ZBDTERM(), 0);
    EXPECT_EQ(ZBDTERM(), -59);
    EXPECT_EQ(ZBDINIT(100, 0), 0);
}

TEST_F(Detached, TheEntryAtLoadStartsTheLibrary) {
    EXPECT_EQ(QV4InitInstance(1, 2), 1);
    EXPECT_EQ(ZBECODE(), 0);
}

TEST_F(Profile, EveryDateKeywordGivesItsStyle) {
    const std::pair<const char*, int> keywords[] = {
        {"GREGOR", 1},   {"GREGORL", 2},  {"JULIAN", 3},    {"YMD", 4},     {"DMY", 5},      {"GERMAN", 6},
        {"EURODATE", 6}, {"GERMANL", 7},  {"EURODATEL", 7}, {"BRITISH", 8}, {"BRITISHL", 9}, {"FRENCH", 10},
        {"FRENCHL", 11}, {"ITALIAN", 12}, {"ITALIANL", 13}, {"ENSI", 14},   {"ENSIL", 15},
    };
    for (auto& [keyword, style] : keywords) EXPECT_EQ(StyleBy(keyword), style) << keyword;
}

TEST_F(Profile, ADateKeywordInSmallLettersIsTheSame) {
    EXPECT_EQ(StyleBy("eurodate"), 6);
    EXPECT_EQ(StyleBy("EuroDateL"), 7);
}

TEST_F(Profile, AnUnknownOrEmptyDateKeywordGivesStyleOne) {
    for (auto* keyword : {"", "EURO", "EURODATES", "GREGORLL", "6", "ENSI L"})
        EXPECT_EQ(StyleBy(keyword), 1) << keyword;
}

TEST_F(Profile, ADateKeywordOfMoreThanNineCharactersMatchesNothing) {
    for (auto* keyword : {"EURODATELX", "EURODATELONG", "EURODATEL2345678901234567890"})
        EXPECT_EQ(StyleBy(keyword), 1) << keyword;
}

TEST_F(Profile, TheDateKeywordIsTakenForEveryArgumentThatIsNoStyle) {
    for (int argument : {0, 16, 255, 256}) EXPECT_EQ(StyleBy("FRENCH", argument), 10) << argument;
    for (int argument : {1, 15}) EXPECT_EQ(StyleBy("FRENCH", argument), argument);
}

TEST_F(Profile, WithoutAFileEveryArgumentThatIsNoStyleGivesStyleOne) {
    for (int argument : {0, 16, 255}) EXPECT_EQ(StyleAfterStart(argument), 1) << argument;
    EXPECT_EQ(StyleAfterStart(271), 15);  // the low 8 bits alone count
}

TEST_F(Core, AStartClearsAFailure) {
    ZBESCODE(-33);
    EXPECT_EQ(ZBDINIT(100, 0), 0);
    EXPECT_EQ(ZBECODE(), 0);
}

TEST_F(Core, AStopDoesntMindAFailure) {
    ZBESCODE(-33);
    EXPECT_EQ(ZBDTERM(), 0);
}

TEST_F(Core, AQuickCloseClearsAFailure) {
    ZBESCODE(-33);
    EXPECT_EQ(ZBDQCLOSE(), 0);
    EXPECT_EQ(ZBECODE(), 0);
}

TEST_F(Core, VersionThreeIsTheOnlyOne) {
    ZBESCODE(-33);
    EXPECT_EQ(ZBDVERSION(3), 0);
    EXPECT_EQ(ZBDVERSION(2), -18);
    EXPECT_EQ(ZBDVERSION(0), -18);
    EXPECT_EQ(ZBDVERSION(65535), -18);
    EXPECT_EQ(ZBECODE(), -33);
}

TEST_F(Core, CodesAreKept) {
    for (int code : {0, 1, -1, 11, -59, -5001, 32767, -32768}) {
        EXPECT_EQ(ZBESCODE(static_cast<int16_t>(code)), code);
        EXPECT_EQ(ZBECODE(), code);
    }
}

TEST_F(Blocks, AllocatingSizeZeroGivesABlockOf128ZeroBytes) {
    ASSERT_EQ(_ZBMALLOC(&handle, 0), 0);
    EXPECT_NE(handle, 0u);
    EXPECT_NE(handle, 0xFFFFFFFFu);
    EXPECT_EQ(Bytes(Address(handle), 128), Fill(128));
    EXPECT_EQ(_ZBMUNLOCK(handle), 0);
    EXPECT_EQ(_ZBMFREE(handle), 0);
}

TEST_F(Blocks, AreZeroWithTheirSlack) {
    ASSERT_EQ(_ZBMALLOC(&handle, 5000), 0);
    EXPECT_EQ(Bytes(Address(handle), 5128), Fill(5128));
    EXPECT_EQ(_ZBMFREE(handle), 0);
}

TEST_F(Blocks, FreeOfAFreedHandleReturnsThePendingCodeAndChangesNothing) {
    ASSERT_EQ(_ZBMALLOC(&handle, 10), 0);
    ASSERT_EQ(_ZBMFREE(handle), 0);
    EXPECT_EQ(_ZBMFREE(handle), 0);
    ZBESCODE(-33);
    EXPECT_EQ(_ZBMFREE(handle), -33);
    EXPECT_EQ(_ZBMFREE(0), -33);
    EXPECT_EQ(_ZBMFREE(0xFFFFFFFF), -33);
    EXPECT_EQ(_ZBMFREE(12345), -33);
    EXPECT_EQ(ZBECODE(), -33);
}

TEST_F(Blocks, AFreeTakesABlockWithAllItsLocks) {
    ASSERT_EQ(_ZBMALLOC(&handle, 10), 0);
    for (int i = 0; i < 3; i++) Address(handle);
    EXPECT_EQ(_ZBMFREE(handle), 0);
    void* address = this;
    EXPECT_EQ(_ZBMLOCK(&address, handle), -58);
    EXPECT_EQ(address, nullptr);
}

TEST_F(Blocks, FreeByTheAddressOfALockedBlock) {
    ASSERT_EQ(_ZBMALLOC(&handle, 10), 0);
    ZBESCODE(-33);
    EXPECT_EQ(ZBMFREE(Address(handle)), 0);
    EXPECT_EQ(ZBECODE(), -33);
    void* address = this;
    EXPECT_EQ(_ZBMLOCK(&address, handle), -58);
}

TEST_F(Blocks, FreeByAnAddressThatIsNone) {
    char byte;
    EXPECT_EQ(ZBMFREE(&byte), 0);
    EXPECT_EQ(ZBMFREE(nullptr), 0);
    ASSERT_EQ(_ZBMALLOC(&handle, 10), 0);
    EXPECT_EQ(ZBMFREE(Address(handle) + 1), 0);
    EXPECT_NE(Address(handle), nullptr);
    EXPECT_EQ(_ZBMFREE(handle), 0);
}

TEST_F(Blocks, ReallocationKeepsTheBytesAndZeroesTheRest) {
    ASSERT_EQ(_ZBMALLOC(&handle, 5), 0);
    strcpy(Address(handle), "hello");
    ASSERT_EQ(_ZBMRALLOC(&handle, 1000), 0);
    EXPECT_EQ(Bytes(Address(handle), 1128), "hello" + Fill(1123));
    ASSERT_EQ(_ZBMRALLOC(&handle, 2), 0);
    EXPECT_STREQ(Address(handle), "hello");
    EXPECT_EQ(_ZBMFREE(handle), 0);
}

TEST_F(Blocks, AReallocationThatFailsLeavesTheOldBlockValid) {
    ASSERT_EQ(_ZBMALLOC(&handle, 5), 0);
    strcpy(Address(handle), "hello");
    ZbBlock before = handle;
    EXPECT_EQ(_ZBMRALLOC(&handle, 0xFFFFFFF0), -3);
    EXPECT_EQ(ZBECODE(), -3);
    EXPECT_EQ(handle, before);
    EXPECT_STREQ(Address(handle), "hello");
    EXPECT_EQ(_ZBMFREE(handle), 0);
    EXPECT_EQ(_ZBMRALLOC(&handle, 10), -3);
}

TEST_F(Blocks, AnAllocationThatFailsGivesNoHandle) {
    handle = 7;
    EXPECT_EQ(_ZBMALLOC(&handle, 0xFFFFFFF0), -3);
    EXPECT_EQ(handle, 0u);
    EXPECT_EQ(ZBECODE(), -3);
}

TEST_F(Blocks, NullArguments) {
    EXPECT_EQ(_ZBMALLOC(nullptr, 1), -21);
    EXPECT_EQ(_ZBMRALLOC(nullptr, 1), -21);
    EXPECT_EQ(_ZBMLOCK(nullptr, 1), -21);
}

TEST_F(Blocks, ASuccessLeavesTheCode) {
    for (int code : {-33, 7}) {
        ZBESCODE(static_cast<int16_t>(code));
        void* address = nullptr;
        EXPECT_EQ(_ZBMALLOC(&handle, 1), 0);
        EXPECT_EQ(_ZBMRALLOC(&handle, 2), 0);
        EXPECT_EQ(_ZBMLOCK(&address, handle), 0);
        EXPECT_EQ(_ZBMUNLOCK(handle), 0);
        EXPECT_EQ(_ZBMFREE(handle), 0);
        EXPECT_EQ(ZBECODE(), code);
    }
}

TEST_F(Blocks, AnUnlockNeverFails) { EXPECT_EQ(_ZBMUNLOCK(12345), 0); }

// The log is a text as the system writes them: lines may end in two bytes.
Bytes LogText() {
    std::stringstream text;
    text << std::ifstream("test.log").rdbuf();
    return text.str();
}

// A failure that one unit detects, as a line of the log.
void FailOnce() {
    void* address;
    EXPECT_EQ(_ZBMLOCK(&address, 12345), -58);
}

TEST_F(Log, ALineIsSourceTabLineTabCodeNewline) {
    StartLog();
    FailOnce();
    FailOnce();
    Bytes text = LogText();
    Bytes line = text.substr(0, text.find('\n') + 1);
    EXPECT_EQ(text, line + line);
    auto first = line.find('\t');
    auto second = line.find('\t', first + 1);
    EXPECT_EQ(line.substr(0, first), "Mglock");
    EXPECT_GT(std::stoi(line.substr(first + 1)), 0);
    EXPECT_EQ(line.substr(second), "\t-58\n");
}

TEST_F(Log, AFailureAppendsOneLineForEachLevelThatItPassesInnermostFirst) {
    StartLog();
    uint16_t handle;
    EXPECT_EQ(ZBDDOPENX(&handle, "none.dbf", 0), -46);
    Bytes units;
    std::istringstream lines(LogText());
    for (std::string line; std::getline(lines, line);) {
        auto first = line.find('\t');
        ASSERT_NE(first, Bytes::npos);
        size_t digits = 0;
        EXPECT_GT(std::stoi(line.substr(first + 1), &digits), 0);
        EXPECT_EQ(line.substr(first + 1 + digits), "\t-46");
        units += line.substr(0, first) + " ";
    }
    EXPECT_EQ(units, "Hopen Ddopen ");
}

TEST_F(Log, WithTheSwitchOffNoFileIsTouched) {
    char name[30] = "test.log";
    FailOnce();
    EXPECT_EQ(ZBESLOG(1, name), -58);
    EXPECT_EQ(ZBESLOG(0, name), -58);
    FailOnce();
    EXPECT_FALSE(FileExists("test.log"));
}

TEST_F(Log, AnUnwritablePathIsIgnored) {
    char name[30] = "missing/test.log";
    EXPECT_EQ(ZBESLOG(1, name), 0);
    FailOnce();
    EXPECT_EQ(ZBECODE(), -58);
    EXPECT_FALSE(FileExists("missing/test.log"));
}

TEST_F(Log, ASwitchOfTwoTurnsOnWithTheOldName) {
    char name[30] = "test.log";
    EXPECT_EQ(ZBESLOG(1, name), 0);
    EXPECT_EQ(ZBESLOG(0, nullptr), 0);
    EXPECT_EQ(ZBESLOG(2, reinterpret_cast<const char*>(1)), 0);
    FailOnce();
    EXPECT_EQ(LibraryTest::Log(), (std::vector<LogEntry>{{"Mglock", -58}}));
    EXPECT_EQ(ZBESLOG(65535, nullptr), -58);
}

TEST_F(Log, ANullNameKeepsTheOldOne) {
    StartLog();
    EXPECT_EQ(ZBESLOG(1, nullptr), 0);
    FailOnce();
    EXPECT_EQ(LibraryTest::Log().size(), 1u);
}

TEST_F(Log, ANameThatFillsItsThirtyBytesEndsThere) {
    const char name[31] = "abcdefghijabcdefghijabcdefghij";
    char exact[30];
    memcpy(exact, name, 30);
    EXPECT_EQ(ZBESLOG(1, exact), 0);
    FailOnce();
    EXPECT_TRUE(FileExists(name));
}

TEST_F(Log, LinesAreAppended) {
    WriteFile("test.log", "before\n");
    char name[30] = "test.log";
    EXPECT_EQ(ZBESLOG(1, name), 0);
    FailOnce();
    EXPECT_EQ(ReadFile("test.log").substr(0, 7), "before\n");
    EXPECT_EQ(LibraryTest::Log().size(), 1u);
}

TEST_F(Log, AStartSwitchesItOffAndForgetsTheName) {
    StartLog();
    EXPECT_EQ(ZBDINIT(100, 1), 0);
    FailOnce();
    EXPECT_EQ(ZBESLOG(2, nullptr), -58);
    FailOnce();
    EXPECT_TRUE(LibraryTest::Log().empty());
}

TEST_F(Log, WarningsAndCodesThatTheHostSetsAreNotLogged) {
    StartLog();
    ZBESCODE(-33);
    ZBESCODE(4);
    EXPECT_TRUE(LibraryTest::Log().empty());
}

}  // namespace
}  // namespace test
